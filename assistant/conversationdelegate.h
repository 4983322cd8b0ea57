#ifndef ORVANE_CONVERSATIONDELEGATE_H
#define ORVANE_CONVERSATIONDELEGATE_H

#include <QStyledItemDelegate>

/// Paints a conversation in two lines: its title, and below it the text that was found or when it was
/// changed last.
class ConversationDelegate : public QStyledItemDelegate
{
    Q_OBJECT

public:
    explicit ConversationDelegate(QObject *parent = nullptr);
    ~ConversationDelegate() override;

    /// Returns the second line for a row of a ConversationListModel.
    static QString secondLine(const QModelIndex &index);

    void paint(QPainter *painter, const QStyleOptionViewItem &option,
               const QModelIndex &index) const override;
    QSize sizeHint(const QStyleOptionViewItem &option, const QModelIndex &index) const override;
    /// Leaves a title that is being typed as it is.
    void setEditorData(QWidget *editor, const QModelIndex &index) const override;

    void updateEditorGeometry(QWidget *editor, const QStyleOptionViewItem &option,
                              const QModelIndex &index) const override;
};

#endif
