#ifndef QTAGENT_TESTS_MCPSCRIPT_H
#define QTAGENT_TESTS_MCPSCRIPT_H

#include <qtagent/mcp/mcpserver.h>

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>

#include <memory>

/// A program that speaks the Model Context Protocol over its pipes, well or badly, as it is told to.
///
/// @code
/// McpScript script = McpScript::legacy("2025-06-18", {McpScript::tool("echo")});
/// script.on("tools/call", {McpScript::result(R"({"content":[{"type":"text","text":"hello"}]})")});
/// script.start(&server);
/// @endcode
///
/// In the texts of its steps "$id", "$token", "$arguments" and "$requestId" stand for what the message holds
/// that has come in.
class McpScript
{
public:
    using Steps = QVector<QJsonArray>;

    McpScript() = default;

    /// A server of a revision with a handshake. It refuses to discover itself as known servers do.
    static McpScript legacy(const QString &version, const QVector<QJsonObject> &tools)
    {
        McpScript script;
        script.on("server/discover", {refusal(-32601, "Method not found")});
        script.on("initialize", {result(R"({"protocolVersion":")" + version
                                        + R"(","capabilities":{"tools":{"listChanged":true}},)"
                                          R"("serverInfo":{"name":"script","version":"1"}})")});
        script.on("tools/list", {result(page(tools))});
        return script;
    }

    /// A server of the revision 2026-07-28, which refuses the handshake.
    static McpScript modern(const QVector<QJsonObject> &tools)
    {
        McpScript script;
        script.on("server/discover",
                  {result(R"({"supportedVersions":["2026-07-28"],"capabilities":{"tools":{}},)"
                          R"("resultType":"complete","ttlMs":0,"cacheScope":"private"})")});
        script.on("initialize", {refusal(-32601, "Only 2026-07-28 is supported")});
        script.on("tools/list", {result(page(tools))});
        return script;
    }

    static QJsonObject tool(const QString &name, const QString &description = "Does things.",
                            const QJsonObject &schema = {{"type", "object"}})
    {
        return {{"name", name}, {"description", description}, {"inputSchema", schema}};
    }

    /// One page of the list of tools.
    static QString page(const QVector<QJsonObject> &tools, const QString &nextCursor = {})
    {
        QJsonArray array;
        for (const QJsonObject &tool : tools)
            array.append(tool);
        QJsonObject object{{"tools", array}};
        if (!nextCursor.isNull())
            object.insert("nextCursor", nextCursor);
        return QString::fromUtf8(QJsonDocument(object).toJson(QJsonDocument::Compact));
    }

    // Steps

    static QJsonArray line(const QString &text) { return {"line", text}; }
    /// A line without its end.
    static QJsonArray text(const QString &text) { return {"text", text}; }
    static QJsonArray repeat(const QString &text, int count) { return {"repeat", text, count}; }
    static QJsonArray error(const QString &text) { return {"error", text}; }
    static QJsonArray repeatError(const QString &text, int count) { return {"repeat error", text, count}; }
    static QJsonArray exit(int code) { return {"exit", code}; }
    /// One of "crash", "freeze", "ignore SIGTERM", "child", "environment" and "close output".
    static QJsonArray word(const QString &word) { return {word}; }

    static QJsonArray result(const QString &json)
    {
        return line(R"({"result":)" + json + R"(,"jsonrpc":"2.0","id":$id})");
    }

    static QJsonArray textResult(const QString &text)
    {
        return result(R"({"content":[{"type":"text","text":")" + text + R"("}]})");
    }

    static QJsonArray refusal(int code, const QString &message, const QString &data = "null")
    {
        const QString error =
            QString(R"({"code":%1,"message":"%2","data":%3})").arg(QString::number(code), message, data);
        return line(R"({"jsonrpc":"2.0","id":$id,"error":)" + error + "}");
    }

    static QJsonArray listChanged()
    {
        return line(R"({"jsonrpc":"2.0","method":"notifications/tools/list_changed"})");
    }

    // Rules

    McpScript &atBegin(const Steps &steps)
    {
        m_script.insert("begin", stepsToJson(steps));
        return *this;
    }

    /// When its standard input is closed.
    McpScript &atEnd(const Steps &steps)
    {
        m_script.insert("end", stepsToJson(steps));
        return *this;
    }

    /// Upon @p message, a method or "tools/call" and a blank and a tool's name. What is added first is done
    /// the first time, and so on; what is added last is done every further time.
    McpScript &on(const QString &message, const Steps &steps)
    {
        QJsonArray turns = m_rules.value(message).toArray();
        turns.append(stepsToJson(steps));
        m_rules.insert(message, turns);
        return *this;
    }

    /// Forgets what is done upon @p message.
    McpScript &clear(const QString &message)
    {
        m_rules.remove(message);
        return *this;
    }

    // Runs

    void start(MireloQtLib::QtAgent::McpServer *server, const QProcessEnvironment &environment = {})
    {
        const QStringList words = command();
        server->startProcess(words.first(), words.mid(1), environment);
    }

    /// The program that plays the script, and its arguments.
    QStringList command()
    {
        QFile file(m_folder->filePath("script"));
        if (!file.open(QIODevice::WriteOnly))
            qFatal("The script cannot be written.");
        m_script.insert("on", m_rules);
        file.write(QJsonDocument(m_script).toJson());
        return {MCP_SCRIPT_SERVER, file.fileName(), logPath()};
    }

    /// The lines that came in, those of earlier starts too.
    QStringList lines() const
    {
        QFile file(logPath());
        if (!file.open(QIODevice::ReadOnly))
            return {};
        return QString::fromUtf8(file.readAll()).split('\n', Qt::SkipEmptyParts);
    }

    /// The messages among them that have this method, or those without one where it is empty.
    QVector<QJsonObject> messages(const QString &method) const
    {
        QVector<QJsonObject> messages;
        for (const QString &line : lines()) {
            const QJsonObject message = QJsonDocument::fromJson(line.toUtf8()).object();
            if (!message.isEmpty() && message["method"].toString() == method)
                messages.append(message);
        }
        return messages;
    }

    QStringList methods() const
    {
        QStringList methods;
        for (const QString &line : lines())
            methods.append(QJsonDocument::fromJson(line.toUtf8()).object()["method"].toString());
        return methods;
    }

    /// The number of the child that it started, or an empty text.
    QString child() const
    {
        const QStringList children = lines().filter("child ");
        return children.isEmpty() ? QString() : children.last().mid(6);
    }

private:
    static QJsonArray stepsToJson(const Steps &steps)
    {
        QJsonArray array;
        for (const QJsonArray &step : steps)
            array.append(step);
        return array;
    }

    QString logPath() const { return m_folder->filePath("log"); }

    std::unique_ptr<QTemporaryDir> m_folder = std::make_unique<QTemporaryDir>();
    QJsonObject m_script;
    QJsonObject m_rules;
};

#endif
