#include "assistantsettings.h"
#include "assistantstartup.h"
#include "assistantwindow.h"
#include "modelchoice.h"
#include "toolset.h"

#include <qtagent/store/conversationstore.h>

#include <QApplication>
#include <QDir>
#include <QMessageBox>

using namespace MireloQtLib::QtAgent;

int main(int argc, char *argv[])
{
    prepareAssistantApplication();
    QApplication application(argc, argv);
    applyAssistantIdentity();

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
