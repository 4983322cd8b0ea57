#include "focusring.h"

#include <QApplication>
#include <QFocusFrame>
#include <QPainter>
#include <QProxyStyle>
#include <qdrawutil.h>

namespace {

// Below its widget, a frame would be cut off where that fills what it lies in.
class AboveWidgets : public QProxyStyle
{
public:
    int styleHint(StyleHint hint, const QStyleOption *option, const QWidget *widget,
                  QStyleHintReturn *data) const override
    {
        return hint == SH_FocusFrame_AboveWidget ? 1 : QProxyStyle::styleHint(hint, option, widget, data);
    }
};

class Frame : public QFocusFrame
{
public:
    explicit Frame(QWidget *parent)
        : QFocusFrame(parent)
    {
        auto *style = new AboveWidgets;
        style->setParent(this);
        setStyle(style);
    }

protected:
    void paintEvent(QPaintEvent * /*event*/) override
    {
        constexpr int width = 2;
        QPainter painter(this);
        qDrawPlainRect(&painter, rect(), palette().color(QPalette::WindowText), width);
    }
};

} // namespace

FocusRing::FocusRing(QWidget *window)
    : QObject(window)
    , m_window(window)
{
    connect(qApp, &QApplication::focusChanged, this,
            [this](QWidget * /*old*/, QWidget *now) { moveTo(now); });
}

FocusRing::~FocusRing() = default;

void FocusRing::moveTo(QWidget *widget)
{
    if (!hasRing(widget))
        return delete m_frame;
    if (!m_frame)
        m_frame = new Frame(widget->window());
    m_frame->setWidget(widget);
}

// A menu and the list of a box show by themselves where they are.
bool FocusRing::hasRing(const QWidget *widget) const
{
    if (!widget || widget->isWindow() || widget->window()->windowType() == Qt::Popup)
        return false;
    const QWidget *ancestor = widget;
    while (ancestor && ancestor != m_window)
        ancestor = ancestor->parentWidget();
    return ancestor;
}
