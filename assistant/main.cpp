#include "assistantsettings.h"
#include "assistantstartup.h"
#include "assistantwindow.h"
#include "keychain.h"
#include "modelchoice.h"
#include "toolset.h"
#include "tourrun.h"

#include <qtagent/store/conversationstore.h>

#include <QApplication>
#include <QCommandLineParser>
#include <QDir>
#include <QMessageBox>

#include <utility>

using namespace MireloQtLib::QtAgent;

namespace {

// The status that asks for another window, in the language that was chosen.
constexpr int otherLanguage = 100;

struct Parts
{
    ConversationStore store;
    AssistantSettings settings;
    Keychain keychain;
    ModelChoice choice{loadProfiles(profileFileCandidates(), QProcessEnvironment::systemEnvironment())};
    const QString toolsPath =
        QFileInfo(AssistantSettings::defaultPath()).dir().filePath(QStringLiteral("tools.json"));
    ToolSet tools{loadToolSettings(toolsPath)};
    QString notice; // for the first window
};

int showWindow(Parts *parts)
{
    applyAssistantLanguage(parts->settings.language());
    AssistantWindow window(&parts->store, &parts->settings);
    const QString notice = std::exchange(parts->notice, {});
    if (!notice.isEmpty())
        window.tell(notice);
    window.setModelChoice(&parts->choice);
    window.setToolSet(&parts->tools, parts->toolsPath);
    QObject::connect(&window, &AssistantWindow::languageChanged, &window, [&window] {
        window.rememberState();
        QCoreApplication::exit(otherLanguage);
    });
    window.show();
    return QApplication::exec();
}

int runWindows()
{
    Parts parts;
    QString error;
    applyAssistantLanguage(parts.settings.language());
    if (!parts.store.open(ConversationStore::defaultPath(), &error)) {
        QMessageBox box(QMessageBox::Critical, QApplication::translate("main", "Orvane 助手"), error);
        box.setTextFormat(Qt::PlainText);
        box.exec();
        return EXIT_FAILURE;
    }
    parts.choice.setKeychain(&parts.keychain);
    if (!parts.store.setAsidePath().isEmpty())
        parts.notice = QApplication::translate("main", "对话文件已损坏，原来的文件保存在 %1。")
                           .arg(parts.store.setAsidePath());
    int status = otherLanguage;
    while (status == otherLanguage)
        status = showWindow(&parts);
    return status;
}

} // namespace

int main(int argc, char *argv[])
{
    prepareAssistantApplication();
    QApplication application(argc, argv);
    applyAssistantIdentity();
    applyReadableColors();

    QCommandLineParser parser;
    parser.addHelpOption();
    const QCommandLineOption tour(QStringLiteral("tour"),
                                  QStringLiteral("Save pictures of every state to DIR."),
                                  QStringLiteral("DIR"));
    const QCommandLineOption look(QStringLiteral("look"),
                                  QStringLiteral("With --tour: one look only, for example zh-dark-100."),
                                  QStringLiteral("LOOK"));
    parser.addOptions({tour, look});
    parser.process(application);
    if (!parser.isSet(tour))
        return runWindows();
    const QDir folder(parser.value(tour));
    if (!folder.mkpath(QStringLiteral(".")))
        return EXIT_FAILURE;
    return parser.isSet(look) ? runTour(folder, parser.value(look)) : runTours(folder);
}
