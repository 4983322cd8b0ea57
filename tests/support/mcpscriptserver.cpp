// Plays a script over its standard input and output: mcpscriptserver SCRIPT LOG. McpScript writes the scripts
// and reads the log, which holds every line that came in. A script is an object:
//
// - "begin", "end": what is done at the start, and when the standard input is closed;
// - "on": what is done upon a message, by its method, or by "tools/call" and a blank and the tool's name. The
//   first list is for the first such message, and so on; the last one is for all that follow.
//
// Each step is a list of a word and its arguments; see run().

#include <QFile>
#include <QHash>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <csignal>
#include <cstdlib>
#include <iostream>
#include <string>
#include <unistd.h>

namespace {

QByteArray compact(const QJsonValue &value)
{
    const QByteArray array = QJsonDocument(QJsonArray{value}).toJson(QJsonDocument::Compact);
    return array.mid(1, array.size() - 2);
}

void write(int descriptor, const QByteArray &bytes)
{
    for (qsizetype written = 0; written < bytes.size();) {
        const ssize_t count =
            ::write(descriptor, bytes.constData() + written, size_t(bytes.size() - written));
        if (count < 0)
            std::_Exit(9);
        written += count;
    }
}

class ScriptServer
{
public:
    ScriptServer(const QJsonObject &script, const QString &logPath)
        : m_script(script)
        , m_log(logPath)
    {
        if (!m_log.open(QIODevice::Append))
            std::_Exit(9);
    }

    int play()
    {
        run(m_script["begin"].toArray());
        std::string line;
        while (std::getline(std::cin, line))
            take(QByteArray::fromStdString(line));
        run(m_script["end"].toArray());
        return 0;
    }

private:
    void take(const QByteArray &line)
    {
        note(line);
        m_message = QJsonDocument::fromJson(line).object();
        const QString method = m_message["method"].toString();
        const QString tool = m_message["params"].toObject()["name"].toString();
        const QJsonObject rules = m_script["on"].toObject();
        const QString rule = rules.contains(method + " " + tool) ? method + " " + tool : method;
        const QJsonArray turns = rules[rule].toArray();
        if (!turns.isEmpty())
            run(turns.at(qMin(m_counts[rule]++, int(turns.size()) - 1)).toArray());
    }

    void note(const QByteArray &line)
    {
        m_log.write(line + '\n');
        m_log.flush();
    }

    QByteArray filled(const QJsonValue &text) const
    {
        const QJsonObject params = m_message["params"].toObject();
        return text.toString()
            .toUtf8()
            .replace("$id", compact(m_message["id"]))
            .replace("$requestId", compact(params["requestId"]))
            .replace("$token", compact(params["_meta"].toObject()["progressToken"]))
            .replace("$arguments", compact(params["arguments"]));
    }

    void run(const QJsonArray &steps)
    {
        for (const QJsonValue &step : steps)
            run(step.toArray().at(0).toString(), step.toArray());
    }

    void run(const QString &word, const QJsonArray &step)
    {
        if (word == "line")
            write(STDOUT_FILENO, filled(step.at(1)) + '\n');
        else if (word == "text")
            write(STDOUT_FILENO, filled(step.at(1)));
        else if (word == "repeat")
            write(STDOUT_FILENO, step.at(1).toString().toUtf8().repeated(step.at(2).toInt()));
        else if (word == "error")
            write(STDERR_FILENO, filled(step.at(1)));
        else if (word == "repeat error")
            write(STDERR_FILENO, step.at(1).toString().toUtf8().repeated(step.at(2).toInt()));
        else if (word == "environment")
            write(STDERR_FILENO, environment());
        else if (word == "exit")
            std::_Exit(step.at(1).toInt());
        else if (word == "crash")
            std::abort();
        else if (word == "freeze")
            ::pause();
        else if (word == "ignore SIGTERM")
            std::signal(SIGTERM, SIG_IGN);
        else if (word == "child")
            startChild();
        else if (word == "close output")
            ::close(STDOUT_FILENO);
        else
            std::_Exit(8);
    }

    // It does what this program does with signals, and notes its number.
    void startChild()
    {
        const pid_t child = ::fork();
        if (child == 0) {
            while (true)
                ::pause();
        }
        note("child " + QByteArray::number(child));
    }

    static QByteArray environment()
    {
        QByteArray variables;
        for (char **variable = environ; *variable; ++variable)
            variables += QByteArray(*variable) + '\n';
        return variables;
    }

    const QJsonObject m_script;
    QFile m_log;
    QJsonObject m_message;
    QHash<QString, int> m_counts;
};

} // namespace

int main(int argc, char **argv)
{
    QFile file(QString::fromLocal8Bit(argc == 3 ? argv[1] : ""));
    if (argc != 3 || !file.open(QIODevice::ReadOnly))
        return 7;
    const QJsonObject script = QJsonDocument::fromJson(file.readAll()).object();
    return ScriptServer(script, QString::fromLocal8Bit(argv[2])).play();
}
