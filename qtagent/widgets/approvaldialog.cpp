#include "approvaldialog.h"

#include "fixedwidthfont_p.h"
#include "linebreaking_p.h"
#include "plaintext_p.h"
#include "visibletext_p.h"

#include <QBoxLayout>
#include <QDialogButtonBox>
#include <QEvent>
#include <QFocusFrame>
#include <QLabel>
#include <QPainter>
#include <QPlainTextEdit>
#include <QPointer>
#include <QPushButton>
#include <QScrollArea>
#include <QScrollBar>
#include <QStaticText>
#include <QStyle>
#include <QtMath>
#include <qdrawutil.h>

namespace MireloQtLib {
namespace QtAgent {

namespace {

constexpr int paintedLength = 1000;
constexpr int reasonLength = 50000;
constexpr int reasonLines = 5; // without scrolling
constexpr int argumentsHeight = 140;
constexpr int focusFrameWidth = 2;

// As wide as it is made, whatever its text is, and one line high at least.
class NarrowLabel : public QLabel
{
public:
    explicit NarrowLabel(const QString &name)
    {
        setObjectName(name);
        setTextFormat(Qt::PlainText);
    }

    QSize sizeHint() const override { return {0, fontMetrics().height() + verticalMargins()}; }
    QSize minimumSizeHint() const override { return sizeHint(); }

protected:
    int horizontalMargins() const { return contentsMargins().left() + contentsMargins().right(); }
    int verticalMargins() const { return contentsMargins().top() + contentsMargins().bottom(); }
};

// One line, which ends in "…" where the dialog is too narrow for it.
class ElidedLabel : public NarrowLabel
{
public:
    ElidedLabel(const QString &name, const QString &text)
        : NarrowLabel(name)
    {
        setText(text);
    }

protected:
    void paintEvent(QPaintEvent * /*event*/) override
    {
        QPainter painter(this);
        drawFrame(&painter);
        style()->drawItemText(&painter, contentsRect(), int(alignment()) | Qt::TextSingleLine, palette(),
                              isEnabled(), elidedText(), foregroundRole());
    }

    void resizeEvent(QResizeEvent *event) override
    {
        QLabel::resizeEvent(event);
        setToolTip(elidedText() == text() ? QString() : plainToolTip(text()));
    }

private:
    QString elidedText() const
    {
        return fontMetrics().elidedText(cutText(text(), paintedLength), Qt::ElideRight,
                                        contentsRect().width());
    }
};

QTextOption wrappingFor(const QString &text)
{
    LineBreakingCost cost;
    cost.add(text);
    QTextOption option;
    option.setWrapMode(cost.isHigh() ? QTextOption::WrapAnywhere : QTextOption::WrapAtWordBoundaryOrAnywhere);
    return option;
}

// Several lines. A word that is longer than a line goes on in the next.
class WrappingLabel : public NarrowLabel
{
public:
    WrappingLabel(const QString &name, const QString &text)
        : NarrowLabel(name)
    {
        setText(text);
        setWordWrap(true);
        m_wrapped.setTextFormat(Qt::PlainText);
        m_wrapped.setTextOption(wrappingFor(text));
        m_wrapped.setText(QString(text).replace(QLatin1Char('\n'), QChar::LineSeparator));
    }

    int heightForWidth(int width) const override
    {
        return qCeil(wrappedText(width - horizontalMargins()).size().height()) + verticalMargins();
    }

protected:
    void paintEvent(QPaintEvent * /*event*/) override
    {
        QPainter painter(this);
        drawFrame(&painter);
        painter.drawStaticText(contentsRect().topLeft(), wrappedText(contentsRect().width()));
    }

private:
    const QStaticText &wrappedText(int width) const
    {
        if (m_wrapped.textWidth() != width || m_font != font()) {
            m_font = font();
            m_wrapped.setTextWidth(width);
            m_wrapped.prepare({}, m_font);
        }
        return m_wrapped;
    }

    mutable QStaticText m_wrapped; // laid out when it is measured
    mutable QFont m_font;
};

// Not every style paints one, and one that can be seen.
class VisibleFocusFrame : public QFocusFrame
{
public:
    using QFocusFrame::QFocusFrame;

protected:
    void paintEvent(QPaintEvent * /*event*/) override
    {
        QPainter painter(this);
        qDrawPlainRect(&painter, rect(), palette().color(foregroundRole()), focusFrameWidth);
    }
};

// As high as its label up to a few lines, then it scrolls, also by the keyboard.
class ReasonArea : public QScrollArea
{
public:
    explicit ReasonArea(QLabel *label)
    {
        setFrameShape(QFrame::NoFrame);
        setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
        setWidget(label);
        setWidgetResizable(true);
        QSizePolicy policy(QSizePolicy::Ignored, QSizePolicy::Minimum);
        policy.setHeightForWidth(true);
        setSizePolicy(policy);
        setFocusPolicy(Qt::NoFocus);
        m_focusFrame->hide(); // else it comes with the dialog, around nothing
        connect(verticalScrollBar(), &QScrollBar::rangeChanged, this, [this](int /*minimum*/, int maximum) {
            setFocusPolicy(maximum > 0 ? Qt::StrongFocus : Qt::NoFocus);
        });
    }

    int heightForWidth(int width) const override
    {
        return qMin(widget()->heightForWidth(width), reasonLines * fontMetrics().lineSpacing());
    }

    QSize sizeHint() const override { return {0, fontMetrics().lineSpacing()}; }
    QSize minimumSizeHint() const override { return sizeHint(); }

protected:
    void focusInEvent(QFocusEvent *event) override
    {
        QScrollArea::focusInEvent(event);
        m_focusFrame->setWidget(this);
    }

    void focusOutEvent(QFocusEvent *event) override
    {
        QScrollArea::focusOutEvent(event);
        m_focusFrame->setWidget(nullptr);
    }

private:
    QFocusFrame *const m_focusFrame = new VisibleFocusFrame(this); // a child of the dialog while it is shown
};

// The Tab key reaches 拒绝 first, whatever order the style puts the buttons into.
class AnswerBox : public QDialogButtonBox
{
public:
    AnswerBox()
        : m_allow(addButton(ApprovalDialog::tr("允许一次"), AcceptRole))
        , m_deny(addButton(ApprovalDialog::tr("拒绝"), RejectRole))
    {
        m_allow->setObjectName(QStringLiteral("approvalAllow"));
        m_deny->setObjectName(QStringLiteral("approvalDeny"));
        orderTabs();
    }

    QPushButton *denyButton() const { return m_deny; }

protected:
    void changeEvent(QEvent *event) override
    {
        QDialogButtonBox::changeEvent(event);
        orderTabs(); // the box has gone back to its own where the style has changed
    }

private:
    void orderTabs()
    {
        setTabOrder(m_deny, m_allow);
        setFocusProxy(m_deny);
    }

    QPushButton *m_allow;
    QPushButton *m_deny;
};

QFont headingFont(QFont font)
{
    font.setBold(true);
    if (font.pixelSize() > 0)
        font.setPixelSize(font.pixelSize() + 1);
    else
        font.setPointSizeF(font.pointSizeF() + 1);
    return font;
}

QLabel *createNameLabel(const QString &toolName)
{
    auto *label = new ElidedLabel(QStringLiteral("approvalTool"),
                                  ApprovalDialog::tr("允许调用工具：%1").arg(visibleText(toolName)));
    label->setFont(headingFont(label->font()));
    return label;
}

QLabel *createPermissionLabel(ToolPermission permission)
{
    return new ElidedLabel(QStringLiteral("approvalPermission"),
                           ApprovalDialog::tr("权限：%1").arg(permissionToString(permission)));
}

QString reasonText(const QString &reason)
{
    QStringList lines = withLineFeeds(cutText(reason, reasonLength)).split(QLatin1Char('\n'));
    for (QString &line : lines)
        line = visibleText(line);
    if (reason.size() > reasonLength)
        lines += ApprovalDialog::tr("（共 %1 个字符，以上是前 %2 个。）")
                     .arg(QString::number(reason.size()), QString::number(reasonLength));
    return lines.join(QLatin1Char('\n'));
}

QWidget *createReasonArea(const QString &reason)
{
    return new ReasonArea(new WrappingLabel(QStringLiteral("approvalReason"), reasonText(reason)));
}

QPlainTextEdit *createArgumentsView(const QJsonObject &arguments)
{
    auto *view = new QPlainTextEdit;
    view->setObjectName(QStringLiteral("approvalArguments"));
    view->setAccessibleName(ApprovalDialog::tr("参数"));
    view->setReadOnly(true);
    view->setTabChangesFocus(true);
    view->setMinimumHeight(argumentsHeight);
    view->setFont(fixedWidthFont());
    view->setPlainText(visibleJson(arguments));
    return view;
}

} // namespace

ApprovalDialog::ApprovalDialog(const ApprovalRequest &request, QWidget *parent)
    : QDialog(parent)
{
    QPlainTextEdit *arguments = createArgumentsView(request.arguments);
    auto *answers = new AnswerBox;

    auto *layout = new QVBoxLayout(this);
    layout->addWidget(createNameLabel(request.toolName));
    layout->addWidget(createPermissionLabel(request.permission));
    layout->addWidget(createReasonArea(request.reason));
    layout->addWidget(arguments);
    layout->addWidget(answers);
    arguments->setFocus();

    connect(answers, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(answers, &QDialogButtonBox::rejected, this, &QDialog::reject);
    setWindowTitle(tr("需要工具调用确认"));
    resize(520, 360);

    // Unless a button in the dialog is the default already, the box chooses the one that accepts.
    answers->denyButton()->setDefault(true);
}

ApprovalDialog::~ApprovalDialog() = default;

bool ApprovalDialog::ask(const ApprovalRequest &request, QWidget *parent)
{
    const QPointer<ApprovalDialog> dialog(new ApprovalDialog(request, parent));
    const bool allowed = dialog->exec() == QDialog::Accepted;
    delete dialog;
    return allowed;
}

} // namespace QtAgent
} // namespace MireloQtLib
