#ifndef MIRELOQTLIB_QTAGENT_REPLYRECORDER_H
#define MIRELOQTLIB_QTAGENT_REPLYRECORDER_H

#include <qtagent/chatmodel.h>
#include <qtagent/testing/qtagent_testing_export.h>

#include <QObject>
#include <QString>
#include <QStringList>

namespace MireloQtLib {
namespace QtAgent {

/// Keeps the signals of a reply as lines, for a test to compare in one go.
///
/// @code
/// ReplyRecorder recorder(model.chat({ChatMessage::user("Hello")}, {}, &model));
/// QVERIFY(QSignalSpy(&recorder, &ReplyRecorder::over).wait());
/// QCOMPARE(recorder.lines(), QStringList({"delta: a", "delta: b", "finished: ab"}));
/// @endcode
///
/// The recorder does not own the reply; either may be deleted first. Make it right behind ChatModel::chat(),
/// before the event loop runs: what was emitted by then is not known to it. Both belong to one thread.
class QTAGENT_TESTING_EXPORT ReplyRecorder : public QObject
{
    Q_OBJECT

public:
    /// Creates a recorder of @p reply. Where that is null or has ended, isOver() is true at once, there are
    /// no lines of the past, and over() is not emitted.
    explicit ReplyRecorder(ChatReply *reply, QObject *parent = nullptr);
    ~ReplyRecorder() override;

    /// Returns one line for each signal so far: "delta: " and the piece, "response" (whose object is
    /// ChatReply::response()), "finished: " and the text, "failed: " and the report, "canceled", and
    /// "deleted" when the reply is, also where it had ended.
    QStringList lines() const;

    /// Returns whether the reply has finished, failed, been canceled or been deleted.
    bool isOver() const;

Q_SIGNALS:
    /// The reply came to its end, which is the last of lines() now. Emitted once, inside the signal that
    /// tells the end.
    void over();

private:
    void add(const QString &line);
    void end(const QString &line);

    QStringList m_lines;
    bool m_over = false;
};

} // namespace QtAgent
} // namespace MireloQtLib

#endif
