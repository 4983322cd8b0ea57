#include "textzoom.h"

#include <QAbstractScrollArea>
#include <QApplication>
#include <QWheelEvent>

#include <cmath>

namespace {

constexpr double stepFactor = 1.1;
constexpr int notch = 120;

} // namespace

TextZoom::TextZoom(QObject *parent)
    : QObject(parent)
{}

TextZoom::~TextZoom() = default;

void TextZoom::add(QAbstractScrollArea *widget)
{
    m_widgets.append(widget);
    widget->viewport()->installEventFilter(this);
    applyTo(widget);
}

int TextZoom::steps() const
{
    return m_steps;
}

void TextZoom::setSteps(int steps)
{
    steps = qBound(fewestSteps, steps, mostSteps);
    if (std::exchange(m_steps, steps) == steps)
        return;
    for (QAbstractScrollArea *widget : qAsConst(m_widgets)) {
        if (widget)
            applyTo(widget);
    }
    Q_EMIT stepsChanged(steps);
}

void TextZoom::enlarge()
{
    setSteps(m_steps + 1);
}

void TextZoom::reduce()
{
    setSteps(m_steps - 1);
}

void TextZoom::reset()
{
    setSteps(0);
}

bool TextZoom::eventFilter(QObject *watched, QEvent *event)
{
    if (event->type() != QEvent::Wheel)
        return QObject::eventFilter(watched, event);
    const auto *wheel = static_cast<QWheelEvent *>(event);
    if (!wheel->modifiers().testFlag(Qt::ControlModifier))
        return QObject::eventFilter(watched, event);
    event->accept(); // else it goes on to the parent
    m_turned += wheel->angleDelta().y();
    const int notches = m_turned / notch;
    m_turned -= notches * notch;
    setSteps(m_steps + notches);
    return true;
}

void TextZoom::applyTo(QAbstractScrollArea *widget) const
{
    QFont font = QApplication::font(widget);
    const double factor = std::pow(stepFactor, m_steps);
    if (font.pointSizeF() > 0)
        font.setPointSizeF(font.pointSizeF() * factor);
    else
        font.setPixelSize(qRound(font.pixelSize() * factor));
    widget->setFont(font);
}
