#include "transcriptpresenter.h"

#include "beginningof.h"
#include "conversationkeeper.h"
#include "librarytexts.h"

#include <qtagent/widgets/markdowntranscript.h>

#include <QPalette>
#include <QScrollBar>

using namespace MireloQtLib::QtAgent;

namespace {

constexpr int mostAtFirst = 200;
constexpr int longestResult = 2000;

// Each is readable on its ground with a contrast of at least 4.5.
struct LabelColors
{
    QColor user;
    QColor assistant;
    QColor tool;
    QColor note;
};

LabelColors labelColors(bool isDark)
{
    if (isDark)
        return {QColor(0x93c5fd), QColor(0x6ee7b7), QColor(0xfcd34d), QColor(0xfca5a5)};
    return {QColor(0x1d4ed8), QColor(0x047857), QColor(0x92400e), QColor(0xb91c1c)};
}

bool isSameText(const ChatMessage &left, const ChatMessage &right)
{
    return left.role == right.role && left.content == right.content && left.name == right.name;
}

QString endOf(const ChatMessage &message)
{
    return message.metadata.value(MessageKey::end()).toString();
}

} // namespace

TranscriptPresenter::TranscriptPresenter(MarkdownTranscript *transcript, QObject *parent)
    : QObject(parent)
    , m_transcript(transcript)
{
    // The transcript may be in the middle of something.
    connect(transcript->verticalScrollBar(), &QScrollBar::valueChanged, this,
            &TranscriptPresenter::showEarlier, Qt::QueuedConnection);
}

TranscriptPresenter::~TranscriptPresenter() = default;

void TranscriptPresenter::setMessages(const QVector<ChatMessage> &messages)
{
    if (!continues(messages)) {
        m_transcript->clear();
        m_shown.clear();
        m_messages.clear();
        m_isArriving = false;
    }
    if (m_messages.isEmpty())
        m_first = qMax(0, int(messages.size()) - mostAtFirst);
    fill(messages);
}

void TranscriptPresenter::fill(const QVector<ChatMessage> &messages)
{
    if (m_first > 0 && m_shown.isEmpty()) {
        begin(tr("还有 %1 条更早的消息，向上滚动就会显示。").arg(m_first), QColor(), false, -1);
        m_transcript->finishMessage();
    }
    for (int i = qMax(m_first, int(m_messages.size())); i < messages.size(); ++i)
        show(messages.at(i), i);
    const bool hasNewEnd = !m_messages.isEmpty() && m_messages.size() == messages.size()
                        && endOf(m_messages.last()) != endOf(messages.last());
    if (hasNewEnd)
        showEnd(endOf(messages.last()), messages.size() - 1);
    m_messages = messages;
}

void TranscriptPresenter::appendDelta(const QString &delta)
{
    if (!m_isArriving) {
        begin(tr("助手"), labelColors(isDark()).assistant, true, m_messages.size());
        m_isArriving = true;
        m_arrived.clear();
    }
    m_arrived += delta;
    m_transcript->appendDelta(delta);
}

int TranscriptPresenter::messageAt(int shown) const
{
    return shown < 0 ? -1 : m_shown.value(shown, -1);
}

int TranscriptPresenter::shownAt(int index) const
{
    return m_shown.indexOf(index);
}

void TranscriptPresenter::showFrom(int index)
{
    if (index < 0 || index >= m_first)
        return;
    m_first = index;
    repaint();
}

// What the reader sees stays, with as much above it as there is below.
void TranscriptPresenter::showEarlier()
{
    const QScrollBar *bar = m_transcript->verticalScrollBar();
    if (m_first == 0 || m_transcript->isFollowing() || bar->value() > bar->minimum())
        return;
    const int first = m_first;
    showFrom(qMax(0, 2 * first - int(m_messages.size())));
    m_transcript->scrollToMessage(shownAt(first));
}

void TranscriptPresenter::repaint()
{
    const QVector<ChatMessage> messages = std::exchange(m_messages, {});
    const QString arrived = m_isArriving ? m_arrived : QString();
    m_transcript->clear();
    m_shown.clear();
    m_isArriving = false;
    fill(messages);
    if (!arrived.isEmpty())
        appendDelta(arrived);
}

// Whether what is shown can stay: it is the beginning of the messages, and what was arriving has become the
// next one.
bool TranscriptPresenter::continues(const QVector<ChatMessage> &messages) const
{
    if (messages.size() < m_messages.size())
        return false;
    for (int i = 0; i < m_messages.size(); ++i) {
        const bool hasOtherEnd = endOf(m_messages.at(i)) != endOf(messages.at(i));
        const bool mayChangeEnd = i == messages.size() - 1 && endOf(m_messages.at(i)).isEmpty();
        if (!isSameText(m_messages.at(i), messages.at(i)) || (hasOtherEnd && !mayChangeEnd))
            return false;
    }
    return !m_isArriving
        || (messages.size() > m_messages.size()
            && isSameText(messages.at(m_messages.size()), ChatMessage::assistant(m_arrived)));
}

void TranscriptPresenter::show(const ChatMessage &message, int index)
{
    const LabelColors colors = labelColors(isDark());
    if (std::exchange(m_isArriving, false)) {
        m_transcript->finishMessage();
    } else if (message.role == QLatin1String("user")) {
        begin(tr("我"), colors.user, false, index);
        m_transcript->appendDelta(message.content);
    } else if (message.role == QLatin1String("tool")) {
        begin(tr("工具 %1").arg(message.name), colors.tool, false, index);
        m_transcript->appendDelta(beginningOf(shownText(message.content), longestResult));
    } else if (message.role == QLatin1String("assistant") && !message.content.isEmpty()) {
        begin(tr("助手"), colors.assistant, true, index);
        m_transcript->appendDelta(message.content);
    } else {
        return;
    }
    m_transcript->finishMessage();
    showEnd(endOf(message), index);
}

void TranscriptPresenter::showEnd(const QString &end, int index)
{
    QString note;
    if (end == QLatin1String("stopped"))
        note = tr("已停止，回答不完整。");
    else if (end == QLatin1String("failed"))
        note = tr("回答中断，不完整。");
    else if (end == QLatin1String("incomplete"))
        note = tr("程序在回答完成之前关闭，回答不完整。");
    else if (end == QLatin1String("length"))
        note = tr("回答达到长度上限，被截断。可以在模型设置里提高上限。");
    else if (end == QLatin1String("filtered"))
        note = tr("回答被服务的内容过滤截断。");
    else if (end == QLatin1String("refused"))
        note = tr("模型拒绝回答。");
    if (note.isEmpty())
        return;
    begin(note, labelColors(isDark()).note, false, index);
    m_transcript->finishMessage();
}

void TranscriptPresenter::begin(const QString &label, const QColor &color, bool isMarkdown, int index)
{
    m_transcript->beginMessage(label, color,
                               isMarkdown ? MarkdownTranscript::Format::Markdown
                                          : MarkdownTranscript::Format::PlainText);
    m_shown.append(index);
}

bool TranscriptPresenter::isDark() const
{
    return m_transcript->palette().color(QPalette::Base).lightness() < 128;
}
