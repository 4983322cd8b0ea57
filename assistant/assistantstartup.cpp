#include "assistantstartup.h"

#include <QApplication>
#include <QDir>
#include <QIcon>
#include <QLibraryInfo>
#include <QLocale>
#include <QPalette>
#include <QStyle>
#include <QStyleFactory>
#include <QTranslator>

#include <cmath>

// Nothing else refers to them in a static library. The macro has to stand in no namespace.
static void initPictures()
{
    Q_INIT_RESOURCE(orvane_assistant);
}

namespace {

QString qtTranslationsFolder()
{
#if QT_VERSION < QT_VERSION_CHECK(6, 0, 0)
    return QLibraryInfo::location(QLibraryInfo::TranslationsPath);
#else
    return QLibraryInfo::path(QLibraryInfo::TranslationsPath);
#endif
}

void install(const QString &file, const QString &folder)
{
    auto *translator = new QTranslator(qApp);
    if (translator->load(file, folder))
        QCoreApplication::installTranslator(translator);
    else
        delete translator;
}

double luminanceOf(const QColor &color)
{
    const auto linear = [](double channel) {
        return channel <= 0.03928 ? channel / 12.92 : std::pow((channel + 0.055) / 1.055, 2.4);
    };
    return 0.2126 * linear(color.redF()) + 0.7152 * linear(color.greenF()) + 0.0722 * linear(color.blueF());
}

bool isReadable(const QColor &text, const QColor &ground)
{
    constexpr double leastContrast = 5; // thin letters are painted paler than their colour
    const double brighter = qMax(luminanceOf(text), luminanceOf(ground));
    const double darker = qMin(luminanceOf(text), luminanceOf(ground));
    return (brighter + 0.05) / (darker + 0.05) >= leastContrast;
}

QColor mixed(const QColor &color, const QColor &other, double share)
{
    const auto channel = [share](int one, int two) { return qRound(one * share + two * (1 - share)); };
    return {channel(color.red(), other.red()), channel(color.green(), other.green()),
            channel(color.blue(), other.blue())};
}

// The first of the colours from @p color to @p end that can be read with @p other.
QColor readable(const QColor &color, const QColor &end, const QColor &other)
{
    double share = 1;
    while (share > 0 && !isReadable(mixed(color, end, share), other))
        share -= 0.05;
    return mixed(color, end, qMax(0.0, share));
}

QPalette darkPalette()
{
    const QColor ground(0x1f2329);
    const QColor text(0xe6e9ee);
    QPalette palette(QColor(0x2b3038), ground);
    for (const auto role : {QPalette::WindowText, QPalette::Text, QPalette::ButtonText})
        palette.setColor(role, text);
    palette.setColor(QPalette::Base, QColor(0x16191d));
    palette.setColor(QPalette::AlternateBase, QColor(0x262b32));
    palette.setColor(QPalette::ToolTipBase, QColor(0x2b3038));
    palette.setColor(QPalette::ToolTipText, text);
    palette.setColor(QPalette::Highlight, QColor(0x1d4ed8));
    palette.setColor(QPalette::HighlightedText, Qt::white);
    palette.setColor(QPalette::Link, QColor(0x93c5fd));
    palette.setColor(QPalette::PlaceholderText, QColor(0x9aa4b2));
    for (const auto role : {QPalette::WindowText, QPalette::Text, QPalette::ButtonText})
        palette.setColor(QPalette::Disabled, role, QColor(0x8a93a0));
    return palette;
}

} // namespace

void prepareAssistantApplication()
{
#if QT_VERSION < QT_VERSION_CHECK(6, 0, 0)
    QCoreApplication::setAttribute(Qt::AA_EnableHighDpiScaling);
    QCoreApplication::setAttribute(Qt::AA_UseHighDpiPixmaps);
#endif
    QGuiApplication::setHighDpiScaleFactorRoundingPolicy(Qt::HighDpiScaleFactorRoundingPolicy::Round);
}

void applyAssistantIdentity()
{
    QCoreApplication::setOrganizationName(QStringLiteral("Mirelo"));
    QCoreApplication::setApplicationName(QStringLiteral("orvane-assistant"));
    initPictures();
    QIcon icon;
    for (const int size : {16, 32, 48, 128, 256})
        icon.addFile(QStringLiteral(":/orvane-assistant/orvane-assistant-%1.png").arg(size));
    QApplication::setWindowIcon(icon);
    QGuiApplication::setDesktopFileName(QStringLiteral("com.mirelo.OrvaneAssistant"));
}

void applyAssistantLanguage(const QString &language)
{
    for (QTranslator *translator : qApp->findChildren<QTranslator *>(QString(), Qt::FindDirectChildrenOnly))
        delete translator;
    const QString system =
        QLocale::system().language() == QLocale::Chinese ? QStringLiteral("zh") : QStringLiteral("en");
    const QString chosen = language.isEmpty() ? system : language;
    const QDir program(QCoreApplication::applicationDirPath());
    QLocale::setDefault(chosen == QLatin1String("zh") ? QLocale(QLocale::Chinese, QLocale::China)
                                                      : QLocale(QLocale::English));
    if (chosen == QLatin1String("zh"))
        return install(QStringLiteral("qtbase_zh_CN"), qtTranslationsFolder());
    install(QStringLiteral("orvane-assistant_") + chosen, program.filePath(QStringLiteral("translations")));
}

void applyReadableColors()
{
    QPalette palette = QApplication::palette(); // what it does not say follows the system
    const QColor base = palette.color(QPalette::Base);
    const QColor text = palette.color(QPalette::Text);
    const QColor chosen = palette.color(QPalette::HighlightedText);
    const QColor paler = palette.color(QPalette::PlaceholderText);
    const QColor far = luminanceOf(chosen) > luminanceOf(Qt::gray) ? Qt::black : Qt::white;
    palette.setColor(QPalette::Highlight, readable(palette.color(QPalette::Highlight), far, chosen));
    palette.setColor(QPalette::PlaceholderText, readable(mixed(paler, base, paler.alphaF()), text, base));
    QApplication::setPalette(palette);
}

void applyAssistantColors(bool isDark)
{
    QApplication::setStyle(QStyleFactory::create(QStringLiteral("Fusion")));
    QApplication::setPalette(isDark ? darkPalette() : QApplication::style()->standardPalette());
    applyReadableColors();
}
