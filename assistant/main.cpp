#include "assistantsettings.h"
#include "assistantstartup.h"
#include "assistantwindow.h"
#include "modelchoice.h"
#include "toolset.h"
#include "tourrun.h"

#include <qtagent/store/conversationstore.h>

#include <QApplication>
#include <QCommandLineParser>
#include <QDir>
#include <QMessageBox>

using namespace MireloQtLib::QtAgent;

namespace {

int runWindow()
{
    ConversationStore store;
    QString error;
    if (!store.open(ConversationStore::defaultPath(), &error)) {
        QMessageBox::critical(nullptr, QString(), error);
        return EXIT_FAILURE;
    }
    AssistantSettings settings;
    ModelChoice choice(loadProfiles(profileFileCandidates(), QProcessEnvironment::systemEnvironment()));
    const QString toolsPath =
        QFileInfo(AssistantSettings::defaultPath()).dir().filePath(QStringLiteral("tools.json"));
    ToolSet tools(loadToolSettings(toolsPath));
    AssistantWindow window(&store, &settings);
    if (!store.setAsidePath().isEmpty())
        window.tell(QApplication::translate("main", "对话文件已损坏，原来的文件保存在 %1。")
                        .arg(store.setAsidePath()));
    window.setModelChoice(&choice);
    window.setToolSet(&tools, toolsPath);
    window.show();
    return QApplication::exec();
}

} // namespace

int main(int argc, char *argv[])
{
    prepareAssistantApplication();
    QApplication application(argc, argv);
    applyAssistantIdentity();

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
    if (!parser.isSet(tour)) {
        applyAssistantLanguage({});
        return runWindow();
    }
    const QDir folder(parser.value(tour));
    if (!folder.mkpath(QStringLiteral(".")))
        return EXIT_FAILURE;
    return parser.isSet(look) ? runTour(folder, parser.value(look)) : runTours(folder);
}
