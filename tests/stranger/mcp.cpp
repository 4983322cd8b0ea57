// Hears of a server that is not there.

#include <qtagent/mcp/mcpserver.h>

#include <QCoreApplication>

using namespace MireloQtLib::QtAgent;

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    McpServer server(QStringLiteral("nobody"));
    QObject::connect(&server, &McpServer::ended, &application, [](const QString &error) {
        QCoreApplication::exit(error.startsWith(QLatin1String("Program could not be started: ")) ? 0 : 1);
    });
    server.startProcess(QStringLiteral("no-such-program"));
    return application.exec();
}
