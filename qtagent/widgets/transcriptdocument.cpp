#include "transcriptdocument_p.h"

#include "codesource_p.h"
#include "plaintext_p.h"
#include "plainwords_p.h"

#include <QTextBlock>
#include <QTextDocument>
#include <QTextLayout>

#include <algorithm>

namespace MireloQtLib {
namespace QtAgent {

namespace {

constexpr int longestShownLabel = 1000;

class EditBlock
{
public:
    explicit EditBlock(QTextDocument *document)
        : m_cursor(document)
    {
        m_cursor.beginEditBlock();
    }
    ~EditBlock() { m_cursor.endEditBlock(); }
    Q_DISABLE_COPY(EditBlock)

private:
    QTextCursor m_cursor;
};

bool isMadeOf(const MarkdownBlock &block, const MarkdownBlock &earlier)
{
    return block.kind == earlier.kind && block.begin == earlier.begin;
}

bool isSameCode(const TranscriptCode &left, const TranscriptCode &right)
{
    return left.message == right.message && left.begin == right.begin && left.index == right.index;
}

// Whether the text ends with this character in a line of words.
bool endsWith(const RichText &text, QChar character)
{
    if (text.elements.isEmpty() || text.elements.last().isTable() || text.elements.last().line.isCode)
        return false;
    const QVector<TextRun> &runs = text.elements.last().line.runs;
    return !runs.isEmpty() && runs.last().text.endsWith(character) && runs.last().style.link.isEmpty();
}

// The last two begin and end cells of a table.
bool beginsLine(QChar character)
{
    return character == QChar::ParagraphSeparator || character == QChar(0xfdd0) || character == QChar(0xfdd1);
}

// Where the character at this offset stands in the text @p after, which has the same lines. What stands in
// brackets stays when they go.
int offsetAfter(const QString &before, const QString &after, int offset)
{
    int result = 0;
    for (int i = 0; i < offset; ++i) {
        if (beginsLine(before.at(i))) {
            while (result < after.size() && !beginsLine(after.at(result)))
                ++result;
        }
        if (result < after.size() && before.at(i) == after.at(result))
            ++result;
    }
    return result;
}

QString shownLabel(const QString &label)
{
    return cutText(displayable(singleLine(label)), longestShownLabel);
}

} // namespace

TranscriptDocument::TranscriptDocument(QTextDocument *document)
    : m_document(document)
    , m_writer(document)
{}

int TranscriptDocument::beginMessage(const QString &label, const QColor &color, bool isMarkdown)
{
    const EditBlock edit(m_document);
    finishMessage();
    Message message;
    message.label = label;
    message.color = color;
    message.isMarkdown = isMarkdown;
    message.source = QLatin1String("");
    if (!label.isEmpty()) {
        message.begin = m_writer.end();
        m_writer.writeLabel(shownLabel(label), color);
    }
    m_messages.append(message);
    m_finder = MarkdownBlocks(isMarkdown);
    m_shownLength = 0;
    m_isOpen = true;
    return messageCount() - 1;
}

void TranscriptDocument::append(const QString &text)
{
    openMessage().source += text;
    m_isShown = false;
}

void TranscriptDocument::finishMessage(const QVector<int *> &positions)
{
    if (!m_isOpen)
        return;
    const EditBlock edit(m_document);
    showBlocks(true);
    resolveReferences(positions);
    m_blocks.clear();
    m_closedCount = 0;
    m_isOpen = false;
    m_isShown = true;
}

void TranscriptDocument::show()
{
    if (m_isShown)
        return;
    m_isShown = true;
    const EditBlock edit(m_document);
    if (!appendPlainWords())
        showBlocks(false);
    m_shownLength = int(openMessage().source.size());
    keepGlyphsOfLastLine();
}

int TranscriptDocument::openLength() const
{
    return m_isOpen ? int(m_messages.last().source.size()) - m_finder.openBegin() : 0;
}

void TranscriptDocument::clear()
{
    const EditBlock edit(m_document);
    m_writer.clear();
    m_messages.clear();
    m_codes.clear();
    m_blocks.clear();
    m_closedCount = 0;
    m_isOpen = false;
    m_isShown = true;
}

void TranscriptDocument::setPalette(const QPalette &palette)
{
    const EditBlock edit(m_document);
    const bool wasOpen = m_isOpen;
    const QVector<Message> messages = m_messages;
    m_writer.formats().setPalette(palette);
    clear();
    for (const Message &message : messages) {
        beginMessage(message.label, message.color, message.isMarkdown);
        append(message.source);
    }
    if (!wasOpen)
        finishMessage();
    show();
}

QString TranscriptDocument::source(int index) const
{
    return index >= 0 && index < messageCount() ? m_messages.at(index).source : QString();
}

int TranscriptDocument::messageAt(int position) const
{
    if (position < 0 || position >= m_document->characterCount())
        return -1;
    int index = messageCount() - 1;
    while (index >= 0 && messageBegin(index) > position)
        --index;
    return index;
}

int TranscriptDocument::messageBegin(int index) const
{
    const int begin = m_messages.at(index).begin;
    return begin < 0 ? m_writer.end() : begin;
}

QString TranscriptDocument::sourceOf(const TranscriptCode &code)
{
    const QString source = m_messages.at(code.message).source;
    if (code.end < 0)
        return codeInFence(source, code.begin);
    const QString text = source.mid(code.begin, code.end - code.begin);
    return codeInText(m_reader.read(text, {}, code.isLoose), text, code.index);
}

QString TranscriptDocument::textOf(const MarkdownBlock &block) const
{
    return m_messages.last().source.mid(block.begin, block.end - block.begin);
}

RichText TranscriptDocument::render(const MarkdownBlock &block, const QString &definitions)
{
    if (block.kind == MarkdownBlock::Text)
        return m_reader.read(textOf(block), definitions, block.isLoose);
    if (block.kind == MarkdownBlock::Verbatim)
        return verbatimText(textOf(block));
    const MarkdownLine::Fence fence = MarkdownBlocks::fenceAt(openMessage().source, block.fence);
    const QString text = textOf(block);
    return codeText(block.continues ? text : MarkdownLine(text).code(fence.indent), fence.language,
                    block.isFirst);
}

// Words that add to the last line and change nothing else are not read.
bool TranscriptDocument::appendPlainWords()
{
    const int end = int(openMessage().source.size());
    if (m_closedCount >= m_blocks.size() || end - m_finder.lineBegin() > MarkdownBlocks::longestLine)
        return false;
    ShownBlock &shown = m_blocks.last();
    if (shown.block.kind != MarkdownBlock::Text || shown.block.end != m_shownLength)
        return false;
    const int begin = shown.block.begin;
    const QString text = openMessage().source.mid(begin);
    const std::optional<QString> words = plainWords(text, m_shownLength - begin);
    if (!words || !endsWith(shown.text, text.left(m_shownLength - begin).trimmed().back()))
        return false;
    RichLine &line = shown.text.elements.last().line;
    if (!words->isEmpty())
        m_writer.appendCharacters(*words, line);
    line.runs.last().text += *words;
    shown.block.end = end;
    return true;
}

void TranscriptDocument::showBlocks(bool isFinal)
{
    const QString &source = openMessage().source;
    const QVector<MarkdownBlock> closed = m_finder.takeClosed(source);
    const QVector<MarkdownBlock> blocks = closed + m_finder.openBlocks(source, isFinal);
    int shown = m_closedCount;
    int next = 0;
    while (shown < m_blocks.size() && next < blocks.size() && m_blocks.at(shown).block == blocks.at(next)) {
        ++shown;
        ++next;
    }
    if (shown < m_blocks.size() && next < blocks.size()
        && isMadeOf(blocks.at(next), m_blocks.at(shown).block)) {
        removeBlocks(shown + 1);
        rewriteBlock(shown, blocks.at(next++));
    } else {
        removeBlocks(shown);
    }
    for (; next < blocks.size(); ++next)
        appendBlock(blocks.at(next));
    closeBlocks(int(closed.size()));
}

void TranscriptDocument::appendBlock(const MarkdownBlock &block, const QString &definitions)
{
    ShownBlock shown;
    shown.block = block;
    shown.text = render(block, definitions);
    shown.position = m_writer.end();
    shown.codesBefore = int(m_codes.size());
    shown.lastCodeBefore = m_codes.isEmpty() ? 0 : m_codes.last().lastPosition;
    m_blocks.append(shown);
    writeBlock(int(m_blocks.size()) - 1, {});
    if (openMessage().begin < 0 && !m_blocks.last().written.isEmpty())
        openMessage().begin = m_blocks.last().written.first().position;
}

void TranscriptDocument::rewriteBlock(int index, const MarkdownBlock &block)
{
    ShownBlock &shown = m_blocks[index];
    RichText before = render(block);
    std::swap(before, shown.text);
    shown.block = block;
    forgetCodes(shown);
    writeBlock(index, before);
}

// An item of a list goes on with the list of the item before it.
void TranscriptDocument::writeBlock(int index, const RichText &before)
{
    ShownBlock &shown = m_blocks[index];
    const bool continuesList = shown.block.kind == MarkdownBlock::Text && shown.block.continues && index > 0;
    QTextList *list = continuesList ? m_blocks.at(index - 1).list.data() : nullptr;
    m_writer.write(&shown.written, before, shown.text, list);
    QTextList *outermost = m_writer.outermostList(shown.written, shown.text);
    shown.list = outermost ? outermost : list;
    addCodes(shown);
}

void TranscriptDocument::removeBlocks(int first)
{
    if (first >= m_blocks.size())
        return;
    const auto begin = m_blocks.begin() + first;
    const auto written =
        std::find_if(begin, m_blocks.end(), [](const ShownBlock &shown) { return !shown.written.isEmpty(); });
    if (written != m_blocks.end())
        m_writer.removeFrom(written->written.first());
    forgetCodes(m_blocks.at(first));
    m_blocks.resize(first);
}

void TranscriptDocument::closeBlocks(int count)
{
    for (const int end = m_closedCount + count; m_closedCount < end; ++m_closedCount)
        m_blocks[m_closedCount].text = {};
}

// Otherwise the line would be shaped a second time when it is painted.
void TranscriptDocument::keepGlyphsOfLastLine()
{
    const QTextBlock last = m_document->lastBlock();
    const QTextBlock before = m_document->findBlock(m_lastLine);
    if (before.isValid() && before != last)
        before.layout()->setCacheEnabled(false);
    last.layout()->setCacheEnabled(true);
    m_lastLine = last.position();
}

void TranscriptDocument::addCodes(const ShownBlock &shown)
{
    const bool isFence = shown.block.kind == MarkdownBlock::CodeLine;
    TranscriptCode code;
    code.message = messageCount() - 1;
    code.begin = isFence ? shown.block.fence : shown.block.begin;
    code.end = isFence ? -1 : shown.block.end;
    code.isLoose = shown.block.isLoose;
    for (int i = 0; i < shown.written.size(); ++i) {
        code.index = shown.text.elements.at(i).line.code;
        code.firstPosition = code.lastPosition = shown.written.at(i).position;
        if (code.index < 0)
            continue;
        if (m_codes.isEmpty() || !isSameCode(m_codes.last(), code))
            m_codes.append(code);
        m_codes.last().lastPosition = code.lastPosition;
    }
}

void TranscriptDocument::forgetCodes(const ShownBlock &shown)
{
    m_codes.resize(shown.codesBefore);
    if (!m_codes.isEmpty())
        m_codes.last().lastPosition = shown.lastCodeBefore;
}

// Every block that uses a definition is rendered once more. What stands between them is not laid out anew.
void TranscriptDocument::resolveReferences(const QVector<int *> &positions)
{
    if (!openMessage().isMarkdown || !openMessage().source.contains(QLatin1String("]:")))
        return;
    const MarkdownReferences references = collectReferences();
    const QVector<ResolvedBlock> resolved = resolvedBlocks(references);
    if (resolved.isEmpty())
        return;
    const bool areSameKinds = std::all_of(resolved.begin(), resolved.end(), [](const ResolvedBlock &block) {
        return TranscriptWriter::areSameKinds(block.before, block.after);
    });
    const QVector<Change> changes =
        areSameKinds ? rewriteInPlace(resolved) : writeAnew(resolved.first().index, references);
    for (int *position : positions)
        *position = moved(*position, changes);
}

MarkdownReferences TranscriptDocument::collectReferences()
{
    MarkdownReferences references;
    for (const ShownBlock &shown : std::as_const(m_blocks)) {
        if (shown.block.kind == MarkdownBlock::Text)
            references.collect(textOf(shown.block), &m_reader);
    }
    return references;
}

QString TranscriptDocument::definitionsFor(const MarkdownBlock &block,
                                           const MarkdownReferences &references) const
{
    return block.kind == MarkdownBlock::Text ? references.usedBy(textOf(block)) : QString();
}

QVector<TranscriptDocument::ResolvedBlock> TranscriptDocument::resolvedBlocks(
    const MarkdownReferences &references)
{
    QVector<ResolvedBlock> resolved;
    for (int index = 0; index < m_blocks.size(); ++index) {
        const ShownBlock &shown = m_blocks.at(index);
        const QString definitions = definitionsFor(shown.block, references);
        if (!definitions.isEmpty() && !shown.written.isEmpty())
            resolved.append({index, render(shown.block), render(shown.block, definitions)});
    }
    return resolved;
}

// From the last block to the first one, so that their positions stay.
QVector<TranscriptDocument::Change> TranscriptDocument::rewriteInPlace(const QVector<ResolvedBlock> &resolved)
{
    QVector<Change> changes;
    for (int i = int(resolved.size()) - 1; i >= 0; --i) {
        const int index = resolved.at(i).index;
        const int begin = m_blocks.at(index).position;
        const int behind = m_document->characterCount() - endOf(index);
        const QString before = shownText(begin, endOf(index));
        m_writer.rewrite(m_blocks.at(index).written, resolved.at(i).before, resolved.at(i).after);
        changes.prepend({begin, before, shownText(begin, m_document->characterCount() - behind)});
    }
    for (int code = m_blocks.at(resolved.first().index).codesBefore; code < m_codes.size(); ++code) {
        m_codes[code].firstPosition = moved(m_codes.at(code).firstPosition, changes);
        m_codes[code].lastPosition = moved(m_codes.at(code).lastPosition, changes);
    }
    return changes;
}

// For a block that has other lines with its definitions.
QVector<TranscriptDocument::Change> TranscriptDocument::writeAnew(int first,
                                                                  const MarkdownReferences &references)
{
    QVector<Change> changes;
    for (int index = first; index < m_blocks.size(); ++index)
        changes.append(
            {m_blocks.at(index).position, shownText(m_blocks.at(index).position, endOf(index)), {}});
    const QVector<ShownBlock> blocks = m_blocks.mid(first);
    removeBlocks(first);
    for (const ShownBlock &shown : blocks)
        appendBlock(shown.block, definitionsFor(shown.block, references));
    for (int index = first; index < m_blocks.size(); ++index)
        changes[index - first].after = shownText(m_blocks.at(index).position, endOf(index));
    return changes;
}

// Behind the end of its last line.
int TranscriptDocument::endOf(int block) const
{
    return block + 1 < m_blocks.size() ? m_blocks.at(block + 1).position : m_writer.end();
}

QString TranscriptDocument::shownText(int begin, int end) const
{
    QString text;
    for (int position = begin; position < end; ++position)
        text += m_document->characterAt(position);
    return text;
}

int TranscriptDocument::moved(int position, const QVector<Change> &changes)
{
    int growth = 0;
    for (const Change &change : changes) {
        const int offset = position - change.begin;
        if (offset <= 0)
            break;
        if (offset < change.before.size())
            return change.begin + growth + offsetAfter(change.before, change.after, offset);
        growth += int(change.after.size() - change.before.size());
    }
    return position + growth;
}

} // namespace QtAgent
} // namespace MireloQtLib
