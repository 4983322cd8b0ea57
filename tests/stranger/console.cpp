// Asks the mock model, and says whether the headers are those of the version given as the argument.

#include <qtagent/mockchatmodel.h>
#include <qtagent/qtagent_version.h>

#include <QCoreApplication>

#ifdef QT_WIDGETS_LIB
#    error "A console program gets Qt Widgets"
#endif
#if defined(QT_NO_KEYWORDS) || defined(QT_NO_CAST_FROM_ASCII)
#    error "The library's own settings reach the programs that link it"
#endif

using namespace MireloQtLib::QtAgent;

class Asker : public QObject
{
public:
    void ask(ChatModel *model)
    {
        ChatReply *reply = model->chat({ChatMessage::user("Hello")}, {}, this);
        connect(reply, &ChatReply::finished, this,
                [](const QString &text) { QCoreApplication::exit(text.isEmpty() ? 1 : 0); });
    }
};

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    const bool sameVersion = application.arguments().value(1) == QTAGENT_VERSION_STRING;
    if (!sameVersion || QTAGENT_VERSION < QT_VERSION_CHECK(0, 1, 0)) {
        qCritical("The headers are of version %s", QTAGENT_VERSION_STRING);
        return 1;
    }
    MockChatModel model;
    Asker asker;
    asker.ask(&model);
    return application.exec();
}
