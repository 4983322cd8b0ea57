// Records against a server of its own, replays without it, and reads where a changed prompt differs.

#include <qtagent/openaicompatiblemodel.h>
#include <qtagent/testing/recordingmodel.h>
#include <qtagent/testing/replaymodel.h>
#include <qtagent/testing/replyrecorder.h>
#include <qtagent/testing/scriptedmodel.h>
#include <qtagent/testing/streamserver.h>

#include <QCoreApplication>
#include <QEventLoop>
#include <QTemporaryDir>

using namespace MireloQtLib::QtAgent;

static QStringList ask(ChatModel *model, const QString &question)
{
    ReplyRecorder recorder(model->chat({ChatMessage::user(question)}, {}, nullptr));
    QEventLoop loop;
    QObject::connect(&recorder, &ReplyRecorder::over, &loop, &QEventLoop::quit);
    loop.exec();
    return recorder.lines();
}

static bool isSame(const QStringList &lines, const QStringList &expected)
{
    if (lines != expected)
        qCritical("%s", qPrintable(lines.join('\n')));
    return lines == expected;
}

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    const QTemporaryDir folder;
    const QString path = folder.filePath("valve.jsonl");
    const QStringList answer{"delta: It ", "delta: opens.", "finished: It opens."};
    const QStringList difference{
        "failed: No recording of this request. First difference: message 1, content: "
        "recorded \"A valve?\", asked \"A pump?\""};
    {
        StreamServer server;
        server.addEvents({R"({"choices":[{"delta":{"content":"It "}}]})",
                          R"({"choices":[{"delta":{"content":"opens."}}]})", "[DONE]"});
        ModelConfig config;
        config.baseUrl = server.baseUrl();
        config.model = "some-model";
        OpenAICompatibleModel model;
        model.setConfig(config);
        RecordingModel recording(&model, path);
        if (!isSame(ask(&recording, "A valve?"), answer))
            return 1;
    }
    ReplayModel replay(path);
    if (!isSame(ask(&replay, "A pump?"), difference) || !isSame(ask(&replay, "A valve?"), answer))
        return 1;
    ScriptedModel script;
    script.addText({"It ", "opens."});
    return isSame(ask(&script, "A valve?"), answer) ? 0 : 1;
}
