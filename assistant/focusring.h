#ifndef ORVANE_FOCUSRING_H
#define ORVANE_FOCUSRING_H

#include <QObject>
#include <QPointer>

QT_BEGIN_NAMESPACE
class QFocusFrame;
class QWidget;
QT_END_NAMESPACE

/// Draws a ring around what has the focus in a window and its dialogs, in the colour of their texts. Styles
/// draw little, or nothing at all around a text.
class FocusRing : public QObject
{
    Q_OBJECT

public:
    /// Follows the focus in @p window, which owns it, and in the dialogs above it.
    explicit FocusRing(QWidget *window);
    ~FocusRing() override;

private:
    void moveTo(QWidget *widget);
    bool hasRing(const QWidget *widget) const;

    QWidget *const m_window;
    QPointer<QFocusFrame> m_frame; // a child of what it is drawn in
};

#endif
