#ifndef ORVANE_THINKINGPANEL_H
#define ORVANE_THINKINGPANEL_H

#include <QWidget>

QT_BEGIN_NAMESPACE
class QPlainTextEdit;
class QToolButton;
QT_END_NAMESPACE

/// What the model thought before it answered, folded away behind a button. It is hidden while there is none.
///
/// Names: thinkingButton, thinkingText.
class ThinkingPanel : public QWidget
{
    Q_OBJECT

public:
    explicit ThinkingPanel(QWidget *parent = nullptr);
    ~ThinkingPanel() override;

public Q_SLOTS:
    /// Adds @p piece, as plain text.
    void append(const QString &piece);

    /// Forgets all. Whether it is folded stays.
    void clear();

private:
    void setOpen(bool isOpen);

    QToolButton *m_button;
    QPlainTextEdit *m_text;
};

#endif
