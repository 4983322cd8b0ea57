// A tool that runs a program, called as an agent calls it:
//   process_tool plant.log "valve"    prints the lines of the file with this text
// Whatever the text is, it remains one argument of grep, and behind -e it is no option.

#include <qtagent/asynctool.h>

#include <QCoreApplication>
#include <QJsonDocument>

#include <cstdio>
#include <cstdlib>

using namespace MireloQtLib::QtAgent;

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    if (arguments.size() != 3) {
        std::fputs("Usage: process_tool FILE TEXT\n", stderr);
        return EXIT_FAILURE;
    }

    const char *schema = R"({"type": "object", "required": ["text"],
                             "properties": {"text": {"type": "string"}, "limit": {"type": "integer"}}})";
    ProcessTool search(QStringLiteral("search_log"), QStringLiteral("Searches the log of the plant."),
                       QJsonDocument::fromJson(schema).object(), QStringLiteral("grep"),
                       {QStringLiteral("--line-number"), QStringLiteral("--max-count={limit}"),
                        QStringLiteral("--fixed-strings"), QStringLiteral("-e"), QStringLiteral("{text}"),
                        QStringLiteral("--"), arguments.at(1)});
    search.setTimeLimit(5000);
    search.setOutputLimit(64 * 1024);

    ToolReply *reply = search.start({{QStringLiteral("text"), arguments.at(2)}}, &application);
    QObject::connect(reply, &ToolReply::finished, &application, [](const ToolResult &result) {
        std::fputs(qUtf8Printable(toolResultText(result)), result.success ? stdout : stderr);
        QCoreApplication::exit(result.success ? EXIT_SUCCESS : EXIT_FAILURE);
    });
    return QCoreApplication::exec();
}
