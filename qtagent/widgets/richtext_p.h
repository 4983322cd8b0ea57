#ifndef MIRELOQTLIB_QTAGENT_RICHTEXT_P_H
#define MIRELOQTLIB_QTAGENT_RICHTEXT_P_H

#include <QString>
#include <QTextFormat>
#include <QVector>

namespace MireloQtLib {
namespace QtAgent {

// What a message looks like, without fonts and colours: the only way from a reader to the document. There is
// no record for a picture, so that none can reach the document.

/// How a run of characters looks.
struct TextStyle
{
    bool isBold = false;
    bool isItalic = false;
    bool isStruckOut = false;
    bool isUnderlined = false;
    bool isCode = false;
    bool isFixedPitch = false; ///< what the reader says of code; its font is the system's fixed font anyway
    QString link;              ///< the address of a link that may be opened, or empty
};

struct TextRun
{
    QString text;
    TextStyle style;
};

/// A line of the document: a paragraph, a heading, an item of a list, a line of code, a horizontal rule.
struct RichLine
{
    int heading = 0; ///< its level
    int quote = 0;   ///< how many quotes it stands in
    int indent = 0;  ///< of a paragraph in a list that is not the item's first
    int list = -1;   ///< the index of its list in the block
    QTextBlockFormat::MarkerType marker = QTextBlockFormat::MarkerType::NoMarker;
    Qt::Alignment alignment;
    bool isRule = false;
    bool isCode = false;
    bool isFirstOfCode = false;
    bool isLabel = false;
    QString language; ///< of code
    int code = -1;    ///< the index of its code in the block
    QVector<TextRun> runs;
};

/// The style, the depth and the marks of a list.
struct RichList
{
    QTextListFormat::Style style = QTextListFormat::ListDisc;
    int depth = 1;
    QString suffix;
};

struct RichCell
{
    int column = 0;
    int span = 1; ///< how many columns it covers
    bool isHeader = false;
    QVector<RichLine> lines; ///< at least one
};

using RichRow = QVector<RichCell>;

/// A line, or a table where there are rows.
struct RichElement
{
    RichLine line;
    int columns = 0;
    QVector<RichRow> rows;

    bool isTable() const { return !rows.isEmpty(); }
};

/// A rendered block.
struct RichText
{
    QVector<RichElement> elements;
    QVector<RichList> lists;
};

bool operator==(const TextStyle &left, const TextStyle &right);
bool operator==(const TextRun &left, const TextRun &right);
bool operator==(const RichList &left, const RichList &right);
bool operator==(const RichCell &left, const RichCell &right);

/// Returns whether lines differ in their characters only.
bool haveSameShape(const RichLine &left, const RichLine &right);

/// Returns how many characters at the beginning of both are the same and look the same. No character
/// outside the basic plane is cut in two.
int commonLength(const QVector<TextRun> &left, const QVector<TextRun> &right);

/// Adds @p text to the end, to the last run where that has the same style.
void appendRun(QVector<TextRun> *runs, const QString &text, const TextStyle &style);

/// Returns the characters of all runs.
QString plainText(const QVector<TextRun> &runs);

/// Returns @p text with U+FFFD in place of each character that a document cannot show or takes for a
/// command of its own. Nothing else changes, so that positions stay.
QString displayable(const QString &text);

} // namespace QtAgent
} // namespace MireloQtLib

#endif
