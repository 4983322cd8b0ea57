#include "markdownreferences_p.h"

#include "markdownreader_p.h"

#include <QStringList>

namespace MireloQtLib {
namespace QtAgent {

namespace {

constexpr int mostDefinitions = 1000;
constexpr int longestDefinition = 3; // lines: the label, the address and the title

QString normalized(const QString &label)
{
    return label.simplified().toCaseFolded();
}

QString labelOf(const QString &definition)
{
    const int begin = int(definition.indexOf(QLatin1Char('['))) + 1;
    return normalized(definition.mid(begin, definition.indexOf(QLatin1String("]:")) - begin));
}

// What is rendered as nothing is a definition: so Qt's reader decides.
bool isDefinition(const QString &text, MarkdownReader *reader)
{
    return text.contains(QLatin1String("]:")) && reader->read(text).elements.isEmpty();
}

// The lines from the one with this index on that make a definition, or none.
QStringList definitionAt(const QStringList &lines, int index, MarkdownReader *reader)
{
    for (int count = 1; count <= longestDefinition && index + count <= lines.size(); ++count) {
        QStringList candidate = lines.mid(index, count);
        if (isDefinition(candidate.join(QLatin1Char('\n')), reader))
            return candidate;
    }
    return {};
}

} // namespace

void MarkdownReferences::collect(const QString &block, MarkdownReader *reader)
{
    if (!block.trimmed().startsWith(QLatin1Char('[')))
        return;
    const QStringList lines = block.split(QLatin1Char('\n'));
    int index = 0;
    while (m_count < mostDefinitions) {
        const QStringList definition = definitionAt(lines, index, reader);
        if (definition.isEmpty())
            return;
        ++m_count;
        const QString text = definition.join(QLatin1Char('\n'));
        if (!m_definitions.contains(labelOf(text)))
            m_definitions.insert(labelOf(text), text);
        index += int(definition.size());
    }
}

QString MarkdownReferences::usedBy(const QString &block) const
{
    QStringList used;
    int begin = -1;
    for (int position = 0; position < block.size() && !m_definitions.isEmpty(); ++position) {
        if (block.at(position) == QLatin1Char('['))
            begin = position + 1;
        if (block.at(position) != QLatin1Char(']') || begin < 0)
            continue;
        const auto found = m_definitions.constFind(normalized(block.mid(begin, position - begin)));
        if (found != m_definitions.constEnd() && !used.contains(*found))
            used.append(*found);
        begin = -1;
    }
    return used.isEmpty() ? QString() : used.join(QLatin1Char('\n')) + QLatin1String("\n\n");
}

} // namespace QtAgent
} // namespace MireloQtLib
