// Answers a question from documents of one's own: retrieval "When does the pump stop?"
// Prints the documents that share the most words with the question, then the model's answer.

#include <qtagent/mockchatmodel.h>
#include <qtagent/simpleragchain.h>

#include <QCoreApplication>

#include <cstdio>

using namespace MireloQtLib::QtAgent;

static void print(const QString &text)
{
    std::fputs(qUtf8Printable(text), stdout);
    std::fflush(stdout);
}

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    const QString question =
        QCoreApplication::arguments().value(1, QStringLiteral("When does the pump stop?"));
    MockChatModel model;
    SimpleRagChain chain;
    chain.setModel(&model);
    chain.setDocuments({
        QStringLiteral("The valve opens at a pressure of 6 bar."),
        QStringLiteral("The tank holds 400 litres."),
        QStringLiteral("The pump runs at night. It has to stop at a pressure of 8 bar."),
    });

    const int documentCount = 2;
    ChatReply *reply = chain.invoke(question, documentCount);
    print(QStringLiteral("%1\n\n").arg(chain.lastContext()));
    QObject::connect(reply, &ChatReply::deltaReceived, reply, &print);
    reply->whenEnded(&application, [](const ChatResult &result) {
        print(QStringLiteral("\n"));
        if (!result.error.isEmpty())
            qCritical("%s", qUtf8Printable(result.error));
        QCoreApplication::exit(result.end == ChatResult::End::Finished ? EXIT_SUCCESS : EXIT_FAILURE);
    });
    return QCoreApplication::exec();
}
