#ifndef QTAGENT_TESTS_DOCUMENTDUMP_H
#define QTAGENT_TESTS_DOCUMENTDUMP_H

#include <QDebug>
#include <QFont>
#include <QHash>
#include <QStringList>
#include <QTextBlock>
#include <QTextDocument>
#include <QTextFrame>
#include <QTextList>
#include <QTextTable>

/// Describes a document line by line, so that two of them can be compared and a difference can be read.
class DocumentDump
{
public:
    /// Everything: each block with all its formats, lists by their order.
    static QStringList all(const QTextDocument &document)
    {
        DocumentDump dump(true);
        dump.addFrame(document.rootFrame());
        return dump.m_lines;
    }

    /// What Markdown says: lines that are not empty with their heading levels, list depths and marks, tables,
    /// anchors, bold, italic, struck out and fixed characters.
    static QStringList markdown(const QTextDocument &document)
    {
        DocumentDump dump(false);
        dump.addFrame(document.rootFrame());
        return dump.m_lines;
    }

    /// Returns the first lines in which the two differ, or nothing.
    static QString difference(const QStringList &left, const QStringList &right)
    {
        for (int line = 0; line < qMax(left.size(), right.size()); ++line) {
            if (left.value(line) != right.value(line))
                return QStringLiteral("line %1:\n%2\n%3")
                    .arg(QString::number(line), left.value(line), right.value(line));
        }
        return {};
    }

private:
    explicit DocumentDump(bool isComplete)
        : m_isComplete(isComplete)
    {}

    void addFrame(const QTextFrame *frame)
    {
        for (auto position = frame->begin(); !position.atEnd(); ++position) {
            if (auto *table = qobject_cast<QTextTable *>(position.currentFrame()))
                addTable(*table);
            else if (position.currentBlock().isValid())
                addBlock(position.currentBlock());
        }
    }

    void addTable(const QTextTable &table)
    {
        m_lines += QStringLiteral("table %1x%2").arg(table.rows()).arg(table.columns());
        if (m_isComplete)
            m_lines += propertiesOf(table.format());
        for (int row = 0; row < table.rows(); ++row) {
            for (int column = 0; column < table.columns(); ++column)
                addCell(table.cellAt(row, column), row, column);
        }
    }

    void addCell(const QTextTableCell &cell, int row, int column)
    {
        m_lines += QStringLiteral("cell %1,%2 span %3").arg(row).arg(column).arg(cell.columnSpan());
        if (m_isComplete)
            m_lines += propertiesOf(cell.format());
        for (auto position = cell.begin(); !position.atEnd(); ++position)
            addBlock(position.currentBlock());
    }

    void addBlock(const QTextBlock &block)
    {
        const QTextBlockFormat format = block.blockFormat();
        QString line = QStringLiteral("heading %1").arg(format.headingLevel());
        if (const QTextList *list = block.textList())
            line += describe(*list) + QStringLiteral(" marker %1").arg(int(format.marker()));
        if (m_isComplete)
            line += propertiesOf(format) + QStringLiteral(" | ") + propertiesOf(block.charFormat());
        else if (block.text().trimmed().isEmpty())
            return;
        m_lines += line + QStringLiteral(" : ") + runsOf(block);
    }

    QString describe(const QTextList &list)
    {
        const int number = m_listNumbers.value(&list, int(m_listNumbers.size()));
        m_listNumbers.insert(&list, number);
        const QTextListFormat format = list.format();
        const QString mark = QStringLiteral(" list depth %1 style %2 suffix %3")
                                 .arg(format.indent())
                                 .arg(int(format.style()))
                                 .arg(format.numberSuffix());
        return m_isComplete ? mark + QStringLiteral(" number %1").arg(number) : mark;
    }

    QString runsOf(const QTextBlock &block) const
    {
        QString runs;
        QString last;
        for (auto position = block.begin(); !position.atEnd(); ++position) {
            const QTextCharFormat format = position.fragment().charFormat();
            const QString style = m_isComplete ? propertiesOf(format) : styleOf(format);
            if (style != last || runs.isEmpty())
                runs += QLatin1Char('{') + style + QLatin1Char('}');
            runs += position.fragment().text();
            last = style;
        }
        return runs;
    }

    static QString styleOf(const QTextCharFormat &format)
    {
        QString style;
        if (format.fontWeight() >= QFont::DemiBold)
            style += QLatin1Char('b');
        if (format.fontItalic())
            style += QLatin1Char('i');
        if (format.fontStrikeOut())
            style += QLatin1Char('s');
        if (format.hasProperty(QTextFormat::FontFamily) || format.hasProperty(QTextFormat::FontFamilies))
            style += QLatin1String("fixed ") + format.font().family();
        if (format.fontFixedPitch())
            style += QLatin1String(" pitch");
        if (format.isAnchor())
            style += QLatin1String(" -> ") + format.anchorHref();
        return style;
    }

    // Objects have other numbers in every document.
    static QString propertiesOf(const QTextFormat &format)
    {
        QString result;
        const QMap<int, QVariant> properties = format.properties();
        for (auto property = properties.begin(); property != properties.end(); ++property) {
            if (property.key() == QTextFormat::ObjectIndex)
                continue;
            QString value;
            QDebug(&value).nospace() << property.value();
            result += QStringLiteral(" %1=%2").arg(QString::number(property.key(), 16), value);
        }
        return result;
    }

    bool m_isComplete;
    QStringList m_lines;
    QHash<const QTextList *, int> m_listNumbers;
};

#endif
