#include "conversationdelegate.h"

#include "conversationlistmodel.h"

#include <QApplication>
#include <QLineEdit>
#include <QLocale>
#include <QPainter>

namespace {

constexpr int margin = 6;

// Blended from text and ground, so that it is readable in each palette and weaker than the title.
QColor mutedColor(const QColor &text, const QColor &ground)
{
    const auto blend = [](int one, int other) { return (one * 3 + other) / 4; };
    return {blend(text.red(), ground.red()), blend(text.green(), ground.green()),
            blend(text.blue(), ground.blue())};
}

void drawLine(QPainter *painter, const QRect &area, const QString &text)
{
    const QString shown = painter->fontMetrics().elidedText(text, Qt::ElideRight, area.width());
    painter->drawText(area, Qt::AlignLeft | Qt::AlignVCenter | Qt::TextSingleLine, shown);
}

} // namespace

ConversationDelegate::ConversationDelegate(QObject *parent)
    : QStyledItemDelegate(parent)
{}

ConversationDelegate::~ConversationDelegate() = default;

QString ConversationDelegate::secondLine(const QModelIndex &index)
{
    QString excerpt = index.data(ConversationListModel::ExcerptRole).toString();
    if (!excerpt.isEmpty())
        return excerpt;
    return QLocale().toString(index.data(ConversationListModel::ChangedRole).toDateTime(),
                              QLocale::ShortFormat);
}

void ConversationDelegate::paint(QPainter *painter, const QStyleOptionViewItem &option,
                                 const QModelIndex &index) const
{
    QStyleOptionViewItem item = option;
    initStyleOption(&item, index);
    item.text.clear();
    const QStyle *style = item.widget ? item.widget->style() : QApplication::style();
    style->drawControl(QStyle::CE_ItemViewItem, &item, painter, item.widget);

    const bool isSelected = option.state.testFlag(QStyle::State_Selected);
    const QColor text = item.palette.color(isSelected ? QPalette::HighlightedText : QPalette::Text);
    const QColor ground = item.palette.color(isSelected ? QPalette::Highlight : QPalette::Base);
    QRect line = option.rect.adjusted(margin, margin, -margin, 0);
    line.setHeight(option.fontMetrics.height());
    painter->save();
    painter->setFont(option.font);
    painter->setPen(text);
    drawLine(painter, line, index.data().toString());
    line.translate(0, option.fontMetrics.height());
    painter->setPen(isSelected ? text : mutedColor(text, ground));
    drawLine(painter, line, secondLine(index));
    painter->restore();
}

QSize ConversationDelegate::sizeHint(const QStyleOptionViewItem &option, const QModelIndex & /*index*/) const
{
    return {0, 2 * option.fontMetrics.height() + 2 * margin};
}

void ConversationDelegate::setEditorData(QWidget *editor, const QModelIndex &index) const
{
    const auto *line = qobject_cast<QLineEdit *>(editor);
    if (!line || !line->isModified())
        QStyledItemDelegate::setEditorData(editor, index);
}

void ConversationDelegate::updateEditorGeometry(QWidget *editor, const QStyleOptionViewItem &option,
                                                const QModelIndex & /*index*/) const
{
    editor->setGeometry(option.rect);
}
