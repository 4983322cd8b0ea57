#ifndef MIRELOQTLIB_QTAGENT_MARKDOWNREFERENCES_P_H
#define MIRELOQTLIB_QTAGENT_MARKDOWNREFERENCES_P_H

#include <QHash>
#include <QString>

namespace MireloQtLib {
namespace QtAgent {

class MarkdownReader;

/// The reference definitions of a message, such as "[manual]: https://example.com", for the blocks that use
/// them. Definitions within lists and quotes are not found; they serve their own block.
class MarkdownReferences
{
public:
    /// Adds the definitions that @p block begins with. Of two with the same label the first one counts.
    void collect(const QString &block, MarkdownReader *reader);

    /// Returns the definitions that @p block uses, as Markdown to be put in front of it.
    QString usedBy(const QString &block) const;

private:
    QHash<QString, QString> m_definitions;
    int m_count = 0; // of those that were read, with those that do not count
};

} // namespace QtAgent
} // namespace MireloQtLib

#endif
