#ifndef MIRELOQTLIB_QTAGENT_MARKDOWNREADER_P_H
#define MIRELOQTLIB_QTAGENT_MARKDOWNREADER_P_H

#include "richtext_p.h"

#include <QTextDocument>

QT_BEGIN_NAMESPACE
class QTextFrame;
class QTextList;
class QTextTable;
QT_END_NAMESPACE

namespace MireloQtLib {
namespace QtAgent {

/// Renders Markdown with Qt's reader, in a document of its own that is never laid out.
///
/// Pictures become their alternative text, or else their address; links that are not to be opened become
/// their text; HTML is text. What Qt's reader would take very long for, such as a table of a million cells,
/// is shown as it stands.
class MarkdownReader
{
public:
    MarkdownReader();

    /// Renders the block @p markdown, with reference definitions that stand elsewhere. An item of a list
    /// does not always show by itself that its list @p isLoose.
    RichText read(const QString &markdown, const QString &definitions = {}, bool isLoose = false);

private:
    void parse(const QString &markdown);
    void readFrame(const QTextFrame *frame);
    void readTable(const QTextTable &table);
    RichCell readCell(const QTextTable &table, int row, int column);
    RichLine readLine(const QTextBlock &block);
    int listIndex(const QTextList *list);
    void appendLine(RichLine line);
    void endCode();
    void removeNextItem();

    QTextDocument m_document;
    QVector<const QTextList *> m_lists;
    RichText m_result;
    int m_codeCount = 0;
};

/// Returns @p text as lines without any markup.
RichText verbatimText(const QString &text);

/// Returns @p line of a block of code.
RichText codeText(const QString &line, const QString &language, bool isFirst);

/// Returns whether a link to @p address may be opened: http, https and mailto, each with an address.
bool isOpenable(const QString &address);

} // namespace QtAgent
} // namespace MireloQtLib

#endif
