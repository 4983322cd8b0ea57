#ifndef MIRELOQTLIB_QTAGENT_STDIOTRANSPORT_P_H
#define MIRELOQTLIB_QTAGENT_STDIOTRANSPORT_P_H

#include "../childprocess_p.h"
#include "linereader_p.h"
#include "mcptransport_p.h"

#include <QTimer>

namespace MireloQtLib {
namespace QtAgent {

// A program that reads messages from its standard input and writes others to its standard output, one a line.
class StdioTransport : public McpTransport
{
    Q_OBJECT

public:
    StdioTransport(const QString &program, const QStringList &arguments,
                   const QProcessEnvironment &environment);
    ~StdioTransport() override;

    void open() override;
    void sendRequest(const McpRequest &request) override;
    void sendMessage(const QByteArray &message, const std::function<void()> &whenSent = {}) override;
    void sendAnswer(const QByteArray &message) override;
    void dropRequest(qint64 id, const QByteArray &cancellation) override;
    bool usesHeaders() const override { return false; }
    void setAgreement(const McpAgreement &agreement) override;
    void listen() override;
    void close() override;

private:
    enum class Stage { Running, InputClosed, Terminated, Killed, Over };

    void read();
    void takeLine(const QByteArray &line);
    void reportError(QProcess::ProcessError error);
    void reportEnd(int exitCode, QProcess::ExitStatus status);
    void endGroup(const QString &reason);
    void enter(Stage stage);
    void finish();
    bool waitForGroup(int ms);

    const QString m_program;
    const QStringList m_arguments;
    ChildProcess m_process;
    LineReader m_lines;
    Stage m_stage = Stage::Running;
    QString m_reason;
    // Runs while a stage may take its time.
    QTimer m_stageTimer;
    // Looks whether the children of a program that has ended are gone, of which nothing tells.
    QTimer m_groupTimer;
};

} // namespace QtAgent
} // namespace MireloQtLib

#endif
