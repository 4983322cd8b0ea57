#ifndef ORVANE_NOTICEBAR_H
#define ORVANE_NOTICEBAR_H

#include <QFrame>
#include <QStyle>

QT_BEGIN_NAMESPACE
class QLabel;
class QPushButton;
class QToolButton;
QT_END_NAMESPACE

/// A line that tells the user something beside the work, where needed with a button for what can be done
/// about it, and with one that closes it. It is hidden at first.
///
/// What it tells is plain text and may be selected. Names: noticeText, noticeAction, noticeClose.
class NoticeBar : public QFrame
{
    Q_OBJECT

public:
    explicit NoticeBar(QWidget *parent = nullptr);
    ~NoticeBar() override;

    /// Shows @p text, and @p action on a button where it is not empty.
    void tell(const QString &text, const QString &action = {});

    /// Sets what stands before the text from now on.
    void setIcon(QStyle::StandardPixmap icon);

    /// Returns what is told, or an empty text while nothing is.
    QString text() const;

public Q_SLOTS:
    /// Hides the bar. Nothing is emitted.
    void clear();

Q_SIGNALS:
    /// The user pressed the button with the action. The bar is still shown.
    void acted();

    /// The user closed the bar.
    void dismissed();

private:
    QLabel *m_icon;
    QLabel *m_text;
    QPushButton *m_action;
    QToolButton *m_close;
};

#endif
