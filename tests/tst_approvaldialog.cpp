#include <qtagent/widgets/approvaldialog.h>

#include <QDialogButtonBox>
#include <QFocusFrame>
#include <QLabel>
#include <QPlainTextEdit>
#include <QPointer>
#include <QPushButton>
#include <QScrollArea>
#include <QScrollBar>
#include <QTimer>
#include <QVBoxLayout>
#include <QtTest>

#include <functional>
#include <memory>

using namespace MireloQtLib::QtAgent;

namespace {

ApprovalRequest exportRequest()
{
    ApprovalRequest request;
    request.approvalId = "c1";
    request.toolName = "export_report";
    request.permission = ToolPermission::FileSystem;
    request.arguments = QJsonObject{{"fileName", "r.txt"}};
    request.reason = "该工具拥有 FileSystem 权限，需要用户确认后才能执行。";
    return request;
}

QLabel *nameLabel(const ApprovalDialog &dialog)
{
    return dialog.findChild<QLabel *>("approvalTool");
}

QLabel *reasonLabel(const ApprovalDialog &dialog)
{
    return dialog.findChild<QLabel *>("approvalReason");
}

QPlainTextEdit *argumentsView(const ApprovalDialog &dialog)
{
    return dialog.findChild<QPlainTextEdit *>("approvalArguments");
}

QStringList namesAlongTheFocus(const ApprovalDialog &dialog, Qt::Key key)
{
    QStringList names{dialog.focusWidget()->objectName()};
    for (int step = 0; step < 3; ++step) {
        QTest::keyClick(dialog.focusWidget(), key);
        names.append(dialog.focusWidget()->objectName());
    }
    return names;
}

// Answers the question that ApprovalDialog::ask() shows once its window is active.
bool askAndAnswer(QWidget *parent, const std::function<void(ApprovalDialog *)> &answer)
{
    QTimer poll;
    QObject::connect(&poll, &QTimer::timeout, [&poll, &answer] {
        auto *dialog = qobject_cast<ApprovalDialog *>(QApplication::activeModalWidget());
        if (!dialog || !dialog->isActiveWindow())
            return;
        poll.stop();
        answer(dialog);
    });
    poll.start(1);
    return ApprovalDialog::ask(exportRequest(), parent);
}

void postKey(QWidget *receiver, int key)
{
    QCoreApplication::postEvent(receiver, new QKeyEvent(QEvent::KeyPress, key, Qt::NoModifier, "\r"));
    QCoreApplication::postEvent(receiver, new QKeyEvent(QEvent::KeyRelease, key, Qt::NoModifier, "\r"));
}

} // namespace

class TestApprovalDialog : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void showsTheRequest();
    void nameIsBoldAndOnePointLarger();
    void nameIsOnePixelLargerWhereTheFontIsSizedInPixels();
    void partsStandInOrder();
    void buttonsHaveTheirRoles();
    void buttonsAnswer_data();
    void buttonsAnswer();
    void returnDenies();
    void returnInTheArgumentsDenies();
    void enterDenies();
    void tabReachesDenyFirst_data();
    void tabReachesDenyFirst();
    void reasonThatScrollsIsReachedByTab();
    void reasonHasNoFrameWithoutTheFocus();
    void escapeDenies();
    void closingTheWindowDenies();
    void dialogIsGoneAfterTheAnswer();
    void deletionOfTheParentDenies();
    void deletionOfTheDialogDenies();
    void questionWithoutAParent();
};

void TestApprovalDialog::showsTheRequest()
{
    const ApprovalDialog dialog(exportRequest());
    QCOMPARE(dialog.windowTitle(), "需要工具调用确认");
    QCOMPARE(dialog.size(), QSize(520, 360));
    QCOMPARE(nameLabel(dialog)->text(), "允许调用工具：export_report");
    QCOMPARE(dialog.findChild<QLabel *>("approvalPermission")->text(), "权限：FileSystem");
    QCOMPARE(reasonLabel(dialog)->text(), "该工具拥有 FileSystem 权限，需要用户确认后才能执行。");
    QCOMPARE(argumentsView(dialog)->toPlainText(), "{\n    \"fileName\": \"r.txt\"\n}\n");
    QVERIFY(argumentsView(dialog)->isReadOnly());
    QCOMPARE(argumentsView(dialog)->minimumHeight(), 140);
    QVERIFY(!argumentsView(dialog)->accessibleName().isEmpty());
}

void TestApprovalDialog::nameIsBoldAndOnePointLarger()
{
    const ApprovalDialog dialog(exportRequest());
    const QFont font = nameLabel(dialog)->font();
    QCOMPARE(int(font.weight()), int(QFont::Bold));
    QCOMPARE(font.pointSizeF(), QApplication::font("QLabel").pointSizeF() + 1);
}

void TestApprovalDialog::nameIsOnePixelLargerWhereTheFontIsSizedInPixels()
{
    const QFont before = QApplication::font();
    QFont sizedInPixels = before;
    sizedInPixels.setPixelSize(14);
    QApplication::setFont(sizedInPixels);
    const ApprovalDialog dialog(exportRequest());
    QApplication::setFont(before);
    QCOMPARE(nameLabel(dialog)->font().pixelSize(), 15);
}

void TestApprovalDialog::partsStandInOrder()
{
    const ApprovalDialog dialog(exportRequest());
    const auto *layout = qobject_cast<QVBoxLayout *>(dialog.layout());
    QVERIFY(layout);
    QStringList parts;
    for (int index = 0; index < layout->count(); ++index) {
        const QWidget *part = layout->itemAt(index)->widget();
        parts.append(part->objectName().isEmpty() ? part->metaObject()->className() : part->objectName());
    }
    QCOMPARE(parts, QStringList({"approvalTool", "approvalPermission", "QScrollArea", "approvalArguments",
                                 "QDialogButtonBox"}));
    QVERIFY(layout->itemAt(2)->widget()->isAncestorOf(reasonLabel(dialog)));
}

void TestApprovalDialog::buttonsHaveTheirRoles()
{
    const ApprovalDialog dialog(exportRequest());
    const auto *box = dialog.findChild<QDialogButtonBox *>();
    QMap<QString, QDialogButtonBox::ButtonRole> roles;
    for (QAbstractButton *button : box->buttons())
        roles.insert(button->text(), box->buttonRole(button));
    QCOMPARE(roles, (QMap<QString, QDialogButtonBox::ButtonRole>{{"允许一次", QDialogButtonBox::AcceptRole},
                                                                 {"拒绝", QDialogButtonBox::RejectRole}}));
}

void TestApprovalDialog::buttonsAnswer_data()
{
    QTest::addColumn<QString>("button");
    QTest::addColumn<bool>("allowed");
    QTest::newRow("允许一次 allows") << "approvalAllow" << true;
    QTest::newRow("拒绝 denies") << "approvalDeny" << false;
}

void TestApprovalDialog::buttonsAnswer()
{
    QFETCH(QString, button);
    QFETCH(bool, allowed);
    QWidget window;
    QCOMPARE(askAndAnswer(&window,
                          [&](ApprovalDialog *dialog) {
                              QTest::mouseClick(dialog->findChild<QPushButton *>(button), Qt::LeftButton);
                          }),
             allowed);
}

void TestApprovalDialog::returnDenies()
{
    bool answered = false;
    const bool allowed = askAndAnswer(nullptr, [&answered](ApprovalDialog *dialog) {
        answered = true;
        postKey(dialog->focusWidget(), Qt::Key_Return);
    });
    QVERIFY(answered);
    QVERIFY(!allowed);
}

void TestApprovalDialog::returnInTheArgumentsDenies()
{
    QVERIFY(!askAndAnswer(nullptr, [](ApprovalDialog *dialog) {
        argumentsView(*dialog)->setFocus();
        postKey(argumentsView(*dialog), Qt::Key_Return);
    }));
}

void TestApprovalDialog::enterDenies()
{
    QVERIFY(!askAndAnswer(nullptr, [](ApprovalDialog *dialog) {
        QVERIFY(dialog->findChild<QPushButton *>("approvalDeny")->isDefault());
        postKey(dialog, Qt::Key_Enter);
    }));
}

void TestApprovalDialog::tabReachesDenyFirst_data()
{
    QTest::addColumn<QString>("styleSheet");
    QTest::addColumn<QString>("laterStyleSheet");
    // The numbers are those of QDialogButtonBox::ButtonLayout.
    const QString acceptFirst = "QDialogButtonBox { button-layout: 0 }";
    const QString denyFirst = "QDialogButtonBox { button-layout: 3 }";
    QTest::newRow("as the platform has it") << ""
                                            << "";
    QTest::newRow("Windows") << acceptFirst << acceptFirst;
    QTest::newRow("GNOME") << denyFirst << denyFirst;
    QTest::newRow("a style sheet that comes later") << "" << acceptFirst;
    QTest::newRow("another that comes later") << acceptFirst << denyFirst;
}

void TestApprovalDialog::tabReachesDenyFirst()
{
    QFETCH(QString, styleSheet);
    QFETCH(QString, laterStyleSheet);
    ApprovalDialog dialog(exportRequest());
    dialog.setStyleSheet(styleSheet);
    dialog.show();
    QVERIFY(QTest::qWaitForWindowActive(&dialog));
    dialog.setStyleSheet(laterStyleSheet);

    const QStringList order{"approvalArguments", "approvalDeny", "approvalAllow", "approvalArguments"};
    QCOMPARE(namesAlongTheFocus(dialog, Qt::Key_Tab), order);
    QCOMPARE(namesAlongTheFocus(dialog, Qt::Key_Backtab), QStringList(order.rbegin(), order.rend()));
    QVERIFY(dialog.findChild<QPushButton *>("approvalDeny")->isDefault());
}

void TestApprovalDialog::reasonThatScrollsIsReachedByTab()
{
    ApprovalRequest request = exportRequest();
    request.reason = QString("line\n").repeated(500);
    ApprovalDialog dialog(request);
    dialog.show();
    QVERIFY(QTest::qWaitForWindowActive(&dialog));
    QCOMPARE(dialog.focusWidget(), argumentsView(dialog));
    QTest::keyClick(dialog.focusWidget(), Qt::Key_Backtab);
    auto *area = qobject_cast<QScrollArea *>(dialog.focusWidget());
    QVERIFY(area);
    QVERIFY(area->isAncestorOf(reasonLabel(dialog)));
    QTest::keyClick(area, Qt::Key_Down);
    QVERIFY(area->verticalScrollBar()->value() > 0);
    QTest::keyClick(area, Qt::Key_Tab);
    QCOMPARE(dialog.focusWidget(), argumentsView(dialog));
}

void TestApprovalDialog::reasonHasNoFrameWithoutTheFocus()
{
    ApprovalDialog dialog(exportRequest());
    dialog.show();
    QVERIFY(QTest::qWaitForWindowActive(&dialog));
    const auto *frame = dialog.findChild<QFocusFrame *>();
    QVERIFY(frame && !frame->isVisible());
}

void TestApprovalDialog::escapeDenies()
{
    QVERIFY(!askAndAnswer(nullptr, [](ApprovalDialog *dialog) { postKey(dialog, Qt::Key_Escape); }));
}

void TestApprovalDialog::closingTheWindowDenies()
{
    QVERIFY(!askAndAnswer(nullptr, [](ApprovalDialog *dialog) { dialog->close(); }));
}

void TestApprovalDialog::dialogIsGoneAfterTheAnswer()
{
    QWidget window;
    QPointer<ApprovalDialog> shown;
    QVERIFY(askAndAnswer(&window, [&shown](ApprovalDialog *dialog) {
        shown = dialog;
        dialog->accept();
    }));
    QVERIFY(!shown);
    QVERIFY(window.children().isEmpty());
}

void TestApprovalDialog::deletionOfTheParentDenies()
{
    auto window = std::make_unique<QWidget>();
    QPointer<ApprovalDialog> shown;
    QVERIFY(!askAndAnswer(window.get(), [&](ApprovalDialog *dialog) {
        shown = dialog;
        QCOMPARE(dialog->parentWidget(), window.get());
        window.reset();
    }));
    QVERIFY(!window);
    QVERIFY(!shown);
}

void TestApprovalDialog::deletionOfTheDialogDenies()
{
    QVERIFY(!askAndAnswer(nullptr, [](ApprovalDialog *dialog) { delete dialog; }));
}

void TestApprovalDialog::questionWithoutAParent()
{
    QVERIFY(askAndAnswer(nullptr, [](ApprovalDialog *dialog) { dialog->accept(); }));
}

QTEST_MAIN(TestApprovalDialog)
#include "tst_approvaldialog.moc"
