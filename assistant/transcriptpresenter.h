#ifndef ORVANE_TRANSCRIPTPRESENTER_H
#define ORVANE_TRANSCRIPTPRESENTER_H

#include <qtagent/chatmessage.h>

#include <QObject>
#include <QVector>

namespace MireloQtLib {
namespace QtAgent {
class MarkdownTranscript;
}
} // namespace MireloQtLib

/// Shows a conversation in a transcript, and goes on with it while it grows.
///
/// Instructions are not shown, questions and results of tools as they stand, answers as Markdown. Below an
/// answer that is not complete a line says why. What is shown already stays in place as long as the
/// conversation goes on as it was.
///
/// Of a long conversation the last 200 messages are shown at first. A line above them tells how many more
/// there are, which follow when the reader scrolls up to it.
class TranscriptPresenter : public QObject
{
    Q_OBJECT

public:
    /// Shows in @p transcript, which outlives the presenter, and which nobody else fills.
    explicit TranscriptPresenter(MireloQtLib::QtAgent::MarkdownTranscript *transcript,
                                 QObject *parent = nullptr);
    ~TranscriptPresenter() override;

    /// Shows @p messages. An answer that appendDelta() has shown is not shown again.
    void setMessages(const QVector<MireloQtLib::QtAgent::ChatMessage> &messages);

    /// Adds @p delta to the answer that is arriving, which stands below the messages.
    void appendDelta(const QString &delta);

    /// Returns the index in the conversation of what stands at the index @p shown in the transcript, or -1.
    int messageAt(int shown) const;

    /// Returns the index in the transcript of the message @p index of the conversation, or -1 where that is
    /// not shown.
    int shownAt(int index) const;

    /// Shows the messages from @p index on, besides those that are shown already.
    void showFrom(int index);

    /// Shows everything anew, in the colours of the palette.
    void repaint();

private:
    void fill(const QVector<MireloQtLib::QtAgent::ChatMessage> &messages);
    void showEarlier();
    bool continues(const QVector<MireloQtLib::QtAgent::ChatMessage> &messages) const;
    void show(const MireloQtLib::QtAgent::ChatMessage &message, int index);
    void showEnd(const QString &end, int index);
    void begin(const QString &label, const QColor &color, bool isMarkdown, int index);
    bool isDark() const;

    MireloQtLib::QtAgent::MarkdownTranscript *const m_transcript;
    QVector<MireloQtLib::QtAgent::ChatMessage> m_messages;
    QVector<int> m_shown; // for each message of the transcript its index in the conversation
    int m_first = 0;      // of the messages that are shown
    bool m_isArriving = false;
    QString m_arrived;
};

#endif
