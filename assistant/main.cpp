#include "assistantsettings.h"
#include "assistantstartup.h"
#include "assistantwindow.h"

#include <qtagent/deepseekmodel.h>
#include <qtagent/mockchatmodel.h>
#include <qtagent/modelconfig.h>
#include <qtagent/openaicompatiblemodel.h>
#include <qtagent/store/conversationstore.h>

#include <QApplication>
#include <QMessageBox>

using namespace MireloQtLib::QtAgent;

namespace {

ChatModel *createModel(const ModelConfig &config, QObject *parent)
{
    ChatModel *model = nullptr;
    if (config.provider == QLatin1String("mock"))
        model = new MockChatModel(parent);
    else if (config.provider == QLatin1String("deepseek"))
        model = new DeepSeekModel(parent);
    else
        model = new OpenAICompatibleModel(parent);
    model->setConfig(config);
    return model;
}

} // namespace

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
    AssistantWindow window(&store, &settings);
    if (!store.setAsidePath().isEmpty())
        window.tell(QApplication::translate("main", "对话文件已损坏，原来的文件保存在 %1。")
                        .arg(store.setAsidePath()));
    const ModelProfiles profiles = loadModelProfiles();
    const ModelConfig config = profiles.profiles.at(profiles.currentIndex);
    window.setModel(createModel(config, &window),
                    config.provider == QLatin1String("mock") ? config.provider : config.model);
    window.show();
    return QApplication::exec();
}
