#ifndef MIRELOQTLIB_QTAGENT_MARKDOWNBLOCKS_P_H
#define MIRELOQTLIB_QTAGENT_MARKDOWNBLOCKS_P_H

#include <QString>
#include <QStringView>
#include <QVector>

namespace MireloQtLib {
namespace QtAgent {

/// A part of a message that is rendered by itself: a range of the message's source.
struct MarkdownBlock
{
    enum Kind {
        Text,     ///< Markdown for Qt's reader: a paragraph, a heading, a list item, a quote, a table
        CodeLine, ///< a line of a fence that stands in no list and no quote
        Verbatim, ///< a line that is shown as it stands
    };

    Kind kind = Text;
    int begin = 0;
    int end = 0;
    int fence = -1;         ///< of a CodeLine: where the line of the opening fence begins
    bool isFirst = false;   ///< of a CodeLine: the first one of its fence
    bool continues = false; ///< begins within a line that is shown in pieces, or goes on with a list
    bool isLoose = false;   ///< an item of a list with blank lines between what it holds
};

bool operator==(const MarkdownBlock &left, const MarkdownBlock &right);

/// A line without its line end, and what decides which block it belongs to. Columns count a tab as Markdown
/// does: it reaches to the next multiple of four.
class MarkdownLine
{
public:
    struct ListMark
    {
        bool isValid = false;
        bool isEmpty = false;      ///< nothing follows on the line
        bool mayInterrupt = false; ///< begins a list right behind the text of a paragraph
        int end = 0;               ///< where the mark ends
        int contentIndent = 0;     ///< the column in which the item's content begins
        QChar character;           ///< the same for the items of one list
    };

    struct Fence
    {
        QChar character; ///< null where the line opens no fence
        int length = 0;
        int indent = 0;
        QString language;
    };

    /// Reads @p text from the character @p position on, which stands in the column @p column.
    explicit MarkdownLine(QStringView text, int position = 0, int column = 0);

    int indent() const { return m_indent; }
    int contentPosition() const { return m_first; }
    bool isBlank() const { return m_first >= int(m_text.size()); }
    bool isHeading() const;
    bool isRule() const;
    bool isSetextUnderline() const;
    int tableColumns() const;           ///< of the table whose second line this is, or 0
    bool isTableRow(int columns) const; ///< with all cells closed
    bool isQuote() const;
    ListMark listMark() const;
    Fence fence() const;
    bool closesFence(QChar character, int length) const;

    /// Returns the line as a line of code within a fence that is indented by @p indent columns: what is left
    /// of the blanks in front, as spaces, and the rest of the line.
    QString code(int indent) const;

private:
    QChar at(int position) const { return position < int(m_text.size()) ? m_text.at(position) : QChar(); }
    int endOfRun(int position, QChar character) const;
    int endOfBlanks(int position) const;
    bool endsAfterSpaces(int position) const;
    int endOfTableCell(int position) const;

    QStringView m_text;
    int m_column;
    int m_first;  // the first character that is no blank
    int m_indent; // in columns
};

/// Finds the blocks of a text that grows at its end.
///
/// A block that has closed stays as it is, whatever follows, so that it is rendered once. Where a block
/// certainly ends is decided by the rules that Qt's reader follows; where they leave a doubt, a list item or
/// a quote goes on. Two bounds keep the cost of rendering a block: it closes after 30,000 characters or 1,000
/// lines, and a line of more than 10,000 characters is no Markdown, but is shown in pieces of 10,000.
///
/// The items of a list close together, since a blank line between two of them makes all of them loose.
///
/// A row of a table is shown as it stands until it is whole: laying out a table takes long, and its columns
/// would change their widths with each character.
class MarkdownBlocks
{
public:
    static constexpr int longestLine = 10000;
    static constexpr int longestBlock = 30000;
    static constexpr int mostLines = 1000;

    /// Finds the blocks of Markdown, or those of plain text: a Verbatim block for every line.
    explicit MarkdownBlocks(bool isMarkdown = true);

    /// Returns the blocks that have closed since the last call. @p source is the whole text.
    QVector<MarkdownBlock> takeClosed(const QString &source);

    /// Returns the blocks of what has not closed, for now, or with @p isFinal as the text ends here.
    QVector<MarkdownBlock> openBlocks(const QString &source, bool isFinal = false) const;

    /// Returns where the part begins that has not closed.
    int openBegin() const { return m_context == Between || m_context == Fence ? m_lineBegin : m_begin; }

    /// Returns where the line begins that has not ended.
    int lineBegin() const { return m_lineBegin; }

    /// Returns the fence whose line begins at @p position of @p source.
    static MarkdownLine::Fence fenceAt(const QString &source, int position);

private:
    enum Context { Between, Paragraph, Table, IndentedCode, Quote, List, Fence };

    void addLine(const QString &source, int begin, int end);
    void addPieces(const QString &source, int begin, int end, bool isWhole);
    void addMarkdownLine(const MarkdownLine &line, int begin, int end);
    void addFenceLine(const MarkdownLine &line, int begin, int end);
    bool endsBlock(const MarkdownLine &line) const;
    bool endsParagraph(const MarkdownLine &line) const;
    bool endsQuote(const MarkdownLine &line) const;
    bool endsList(const MarkdownLine &line) const;
    bool isNextItem(const MarkdownLine &line) const;
    void beginBlock(const MarkdownLine &line, int begin);
    void extendBlock(const MarkdownLine &line, int end);
    void extendQuote(const MarkdownLine &line);
    void extendList(const MarkdownLine &line);
    void findNestedItem(const MarkdownLine &line);
    bool isInNestedList(const MarkdownLine &line) const;
    void findInnerFence(MarkdownLine line);
    bool closesInnerFence(const MarkdownLine &line) const;
    void closeBlock();
    void closeList(bool continues);
    void emitLine(int begin, int end, bool continues);

    bool m_isMarkdown;
    Context m_context = Between;
    int m_lineBegin = 0; // of the line that has not ended
    int m_begin = 0;     // of the open block
    int m_end = 0;       // of its last line that is not blank
    int m_lineCount = 0;
    bool m_isInLongLine = false;
    bool m_isAfterBlank = false;
    bool m_continues = false;       // the open block goes on with the list before it
    int m_columns = 0;              // of the table
    bool m_isLoose = false;         // the list
    int m_contentIndent = 0;        // of the list item
    QChar m_listMark;               // of the list item
    int m_nestedIndent = 0;         // of the content of the last item in a list within the item
    QChar m_nestedMark;             // of that item
    QVector<MarkdownBlock> m_items; // of the open list, without the last one
    MarkdownLine::Fence m_fence;    // the open one, or the one that may be open within a list or a quote
    QStringView m_text;             // the line being added
    QVector<MarkdownBlock> m_closed;
};

} // namespace QtAgent
} // namespace MireloQtLib

#endif
