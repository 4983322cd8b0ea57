#ifndef ORVANE_TEXTZOOM_H
#define ORVANE_TEXTZOOM_H

#include <QObject>
#include <QPointer>
#include <QVector>

QT_BEGIN_NAMESPACE
class QAbstractScrollArea;
QT_END_NAMESPACE

/// Makes the text of some widgets larger or smaller, together and in steps of a tenth: with Ctrl and the
/// wheel above one of them, and through the slots.
class TextZoom : public QObject
{
    Q_OBJECT

public:
    static constexpr int fewestSteps = -4;
    static constexpr int mostSteps = 12;

    explicit TextZoom(QObject *parent = nullptr);
    ~TextZoom() override;

    /// Changes the text of @p widget from now on, which is not owned.
    void add(QAbstractScrollArea *widget);

    /// Returns how many steps the text is larger than that of the system; 0 at first.
    int steps() const;

    /// Sets that, within the limits.
    void setSteps(int steps);

public Q_SLOTS:
    void enlarge();
    void reduce();

    /// Gives the text the size that it has in the system.
    void reset();

Q_SIGNALS:
    void stepsChanged(int steps);

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void applyTo(QAbstractScrollArea *widget) const;

    QVector<QPointer<QAbstractScrollArea>> m_widgets;
    int m_steps = 0;
    int m_turned = 0; // of the wheel, less than a notch
};

#endif
