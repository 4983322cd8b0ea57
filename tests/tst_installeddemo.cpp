#include "support/offlineconfiguration.h"

#include <QImage>
#include <QProcess>
#include <QtTest>

#include <csignal>

namespace {

constexpr int startLimitMs = 60000;

// The folder that the demo is installed to.
QString prefix()
{
    return qEnvironmentVariable("ORVANE_PREFIX");
}

// The value of a key in the demo's menu entry.
QString menuEntry(const QString &key)
{
    QFile file(prefix() + "/share/applications/com.mirelo.OrvaneDemo.desktop");
    if (!file.open(QIODevice::ReadOnly))
        return {};
    const QStringList lines = QString::fromUtf8(file.readAll()).split('\n');
    const QStringList found = lines.filter(QRegularExpression('^' + key + '='));
    return found.value(0).mid(key.size() + 1);
}

// Qt logs what it paints, so the window is seen from outside where no screen shows it.
QProcessEnvironment environmentThatLogsPainting()
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("QT_LOGGING_RULES", "qt.widgets.painting.info=true");
    environment.insert("QT_FORCE_STDERR_LOGGING", "1");
    environment.remove("QT_MESSAGE_PATTERN");
    return environment;
}

bool tellsOfPaintedWindow(const QByteArray &log)
{
    static const QRegularExpression painting("Drawing [^\n]* of OrvaneDemoWindow\\(");
    return QString::fromUtf8(log).contains(painting);
}

} // namespace

// The demo as others get it, below the prefix that the variable ORVANE_PREFIX names.
class TestInstalledDemo : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void menuEntryStartsTheDemo();
    void menuEntryHasItsIconInEverySize_data();
    void menuEntryHasItsIconInEverySize();
    void menuEntryHasItsIconAsDrawing();
};

void TestInstalledDemo::menuEntryStartsTheDemo()
{
    const OfflineConfiguration configuration;
    const QString program = menuEntry("Exec");
    QVERIFY(!program.isEmpty());
    QByteArray log;
    QProcess demo;
    demo.setProcessEnvironment(environmentThatLogsPainting());
    connect(&demo, &QProcess::readyReadStandardError, this,
            [&demo, &log] { log += demo.readAllStandardError(); });

    demo.start(prefix() + "/bin/" + program, QStringList());
    const auto hasEnded = [&demo] { return demo.state() == QProcess::NotRunning; };
    QTRY_VERIFY_WITH_TIMEOUT(tellsOfPaintedWindow(log) || hasEnded(), startLimitMs);
    demo.terminate();
    QTRY_VERIFY_WITH_TIMEOUT(hasEnded(), startLimitMs);

    // It ran until the signal came.
    QVERIFY2(tellsOfPaintedWindow(log), log.constData());
    QCOMPARE(demo.exitStatus(), QProcess::CrashExit);
    QCOMPARE(demo.exitCode(), SIGTERM);
}

void TestInstalledDemo::menuEntryHasItsIconInEverySize_data()
{
    QTest::addColumn<int>("size");
    for (const int size : {48, 128, 256})
        QTest::addRow("%d", size) << size;
}

void TestInstalledDemo::menuEntryHasItsIconInEverySize()
{
    QFETCH(int, size);
    const QString folder = QString("%1/share/icons/hicolor/%2x%2/apps/").arg(prefix()).arg(size);

    QCOMPARE(QImage(folder + menuEntry("Icon") + ".png").size(), QSize(size, size));
}

void TestInstalledDemo::menuEntryHasItsIconAsDrawing()
{
    QFile drawing(prefix() + "/share/icons/hicolor/scalable/apps/" + menuEntry("Icon") + ".svg");

    QVERIFY(drawing.open(QIODevice::ReadOnly));
    QVERIFY(drawing.readAll().startsWith("<svg "));
}

QTEST_GUILESS_MAIN(TestInstalledDemo)
#include "tst_installeddemo.moc"
