#ifndef QTAGENT_TESTS_SAMPLEWINDOW_H
#define QTAGENT_TESTS_SAMPLEWINDOW_H

#include "completions.h"
#include "eventloop.h"
#include "loopbackserver.h"

#include <qtagent/chatmodel.h>
#include <qtagent/deepseekmodel.h>
#include <qtagent/openaicompatiblemodel.h>

#include <QJsonArray>
#include <QWidget>

/// The address of the server that answers in place of the services that samples name.
inline QString serviceAddress;

/// A model of a sample, which asks the test's server, whatever address its profile has.
template<typename Model>
class ServedModel : public Model
{
public:
    using Model::Model;

    void setConfig(MireloQtLib::QtAgent::ModelConfig config)
    {
        config.baseUrl = serviceAddress;
        Model::setConfig(config);
    }
};

/// The window of a reader who pastes a sample into one of its functions, with what the samples take for
/// given.
class SampleWindow : public QWidget
{
public:
    using OpenAICompatibleModel = ServedModel<MireloQtLib::QtAgent::OpenAICompatibleModel>;
    using DeepSeekModel = ServedModel<MireloQtLib::QtAgent::DeepSeekModel>;
    using ChatResult = MireloQtLib::QtAgent::ChatResult;

    SampleWindow()
    {
        MireloQtLib::QtAgent::ModelConfig config;
        config.model = QStringLiteral("test-model");
        model->setConfig(config);
    }

    /// Runs the sample.
    virtual void paste() = 0;

    void show(const QString &delta) { shown += delta; }
    void showEnd(const ChatResult &result)
    {
        ends.append(QVariant::fromValue(result.end).toString() + ": " + result.text + result.error);
    }
    void showAnswer(const QString &text) { ends.append("Finished: " + text); }
    void showError(const QString &error) { ends.append("Failed: " + error); }

    OpenAICompatibleModel *const model = new OpenAICompatibleModel(this);
    const QString question = QStringLiteral("What is a valve?");
    const QString key = QStringLiteral("secret");
    QString shown;
    /// What the sample has told of ends, for example "Finished: Hello world".
    QStringList ends;
};

/// A service that answers each request with "Hello world", in the way that the request asks for.
class SampleService
{
public:
    SampleService()
    {
        serviceAddress = server.baseUrl();
        server.setHandler(&answer);
    }

    static LoopbackAnswer answer(const LoopbackRequest &request)
    {
        if (request.json[QLatin1String("stream")].toBool())
            return LoopbackAnswer::stream({deltaEvent("Hello "), deltaEvent("world"), doneEvent()});
        return LoopbackAnswer::json(completion("Hello world"));
    }

    /// The next request is answered when the server is released, or stopped.
    void wait()
    {
        server.setHandler([](const LoopbackRequest &request) { return answer(request).held(); });
    }

    /// Every request is refused.
    void fail()
    {
        server.setHandler([](const LoopbackRequest &) {
            return LoopbackAnswer::withStatus(401, R"({"error":{"message":"bad key"}})");
        });
    }

    LoopbackServer server;
};

#endif
