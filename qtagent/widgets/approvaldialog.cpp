#include "approvaldialog.h"

#include "plaintext_p.h"

#include <QBoxLayout>
#include <QDialogButtonBox>
#include <QJsonDocument>
#include <QLabel>
#include <QPainter>
#include <QPlainTextEdit>
#include <QPointer>
#include <QPushButton>
#include <QStyle>

namespace MireloQtLib {
namespace QtAgent {

namespace {

constexpr int paintedLength = 1000;
constexpr int reasonLength = 500;
constexpr int argumentsHeight = 140;

// One line, which ends in "…" where the dialog is too narrow for it.
class ElidedLabel : public QLabel
{
public:
    using QLabel::QLabel;

protected:
    void paintEvent(QPaintEvent * /*event*/) override
    {
        QPainter painter(this);
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

void showPlain(QLabel *label, const QString &name, const QString &text)
{
    label->setObjectName(name);
    label->setTextFormat(Qt::PlainText);
    label->setText(singleLine(text));
    // However long the text is, it does not widen the dialog.
    label->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Minimum);
}

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
    auto *label = new ElidedLabel;
    showPlain(label, QStringLiteral("approvalTool"), QStringLiteral("允许调用工具：%1").arg(toolName));
    label->setFont(headingFont(label->font()));
    return label;
}

QLabel *createPermissionLabel(ToolPermission permission)
{
    auto *label = new QLabel;
    showPlain(label, QStringLiteral("approvalPermission"),
              QStringLiteral("权限：%1").arg(permissionToString(permission)));
    return label;
}

QLabel *createReasonLabel(const QString &reason)
{
    auto *label = new QLabel;
    showPlain(label, QStringLiteral("approvalReason"), cutText(reason, reasonLength));
    label->setWordWrap(true);
    return label;
}

bool misleads(QChar character)
{
    const ushort code = character.unicode();
    const bool breaksLine = code == 0x2028 || code == 0x2029;
    const bool reorders = code == 0x061c || code == 0x200e || code == 0x200f
                       || (code >= 0x202a && code <= 0x202e) || (code >= 0x2066 && code <= 0x2069);
    return breaksLine || reorders;
}

QString readableJson(const QJsonObject &object)
{
    const QString json = QString::fromUtf8(QJsonDocument(object).toJson());
    QString text;
    text.reserve(json.size());
    for (const QChar character : json) {
        if (misleads(character))
            text += QStringLiteral("\\u%1").arg(character.unicode(), 4, 16, QLatin1Char('0'));
        else
            text += character;
    }
    return text;
}

QPlainTextEdit *createArgumentsView(const QJsonObject &arguments)
{
    auto *view = new QPlainTextEdit;
    view->setObjectName(QStringLiteral("approvalArguments"));
    view->setAccessibleName(QStringLiteral("参数"));
    view->setReadOnly(true);
    view->setTabChangesFocus(true);
    view->setMinimumHeight(argumentsHeight);
    view->setPlainText(readableJson(arguments));
    return view;
}

} // namespace

ApprovalDialog::ApprovalDialog(const ApprovalRequest &request, QWidget *parent)
    : QDialog(parent)
{
    auto *buttons = new QDialogButtonBox;
    QPushButton *allow = buttons->addButton(QStringLiteral("允许一次"), QDialogButtonBox::AcceptRole);
    QPushButton *deny = buttons->addButton(QStringLiteral("拒绝"), QDialogButtonBox::RejectRole);
    allow->setObjectName(QStringLiteral("approvalAllow"));
    deny->setObjectName(QStringLiteral("approvalDeny"));

    auto *layout = new QVBoxLayout(this);
    layout->addWidget(createNameLabel(request.toolName));
    layout->addWidget(createPermissionLabel(request.permission));
    layout->addWidget(createReasonLabel(request.reason));
    layout->addWidget(createArgumentsView(request.arguments));
    layout->addWidget(buttons);

    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    setWindowTitle(QStringLiteral("需要工具调用确认"));
    resize(520, 360);

    // Unless a button in the dialog is the default already, the box chooses the one that accepts.
    deny->setDefault(true);
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
