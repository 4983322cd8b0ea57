#include <qtagent/widgets/approvaldialog.h>

#include <QDialogButtonBox>
#include <QJsonDocument>
#include <QLabel>
#include <QPlainTextEdit>
#include <QPointer>
#include <QPushButton>
#include <QTextDocumentFragment>
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

ApprovalRequest requestNamed(const QString &toolName)
{
    ApprovalRequest request = exportRequest();
    request.toolName = toolName;
    return request;
}

QLabel *nameLabel(const ApprovalDialog &dialog)
{
    return dialog.findChild<QLabel *>("approvalTool");
}

QPlainTextEdit *argumentsView(const ApprovalDialog &dialog)
{
    return dialog.findChild<QPlainTextEdit *>("approvalArguments");
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
    void labelsArePlainText();
    void nameStaysOnOneLine_data();
    void nameStaysOnOneLine();
    void longNameIsKeptAndElided();
    void hugeTextsLeaveTheDialogItsSize();
    void markersOfAFormatStringAreNotFilled();
    void argumentsCannotReorderOrBreakTheirLines();
    void buttonsAnswer_data();
    void buttonsAnswer();
    void returnDenies();
    void returnInTheArgumentsDenies();
    void enterDenies();
    void tabLeavesTheArguments();
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
    QCOMPARE(dialog.findChild<QLabel *>("approvalReason")->text(),
             "该工具拥有 FileSystem 权限，需要用户确认后才能执行。");
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
    QCOMPARE(parts, QStringList({"approvalTool", "approvalPermission", "approvalReason", "approvalArguments",
                                 "QDialogButtonBox"}));
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

void TestApprovalDialog::labelsArePlainText()
{
    ApprovalRequest request = requestNamed("<b>x</b><br>权限：ReadOnly");
    request.reason = "<a href='http://127.0.0.1/'>x</a>";
    const ApprovalDialog dialog(request);
    QCOMPARE(nameLabel(dialog)->text(), "允许调用工具：<b>x</b><br>权限：ReadOnly");
    QCOMPARE(dialog.findChild<QLabel *>("approvalReason")->text(), "<a href='http://127.0.0.1/'>x</a>");
    for (const QLabel *label : dialog.findChildren<QLabel *>())
        QCOMPARE(label->textFormat(), Qt::PlainText);
}

void TestApprovalDialog::nameStaysOnOneLine_data()
{
    QTest::addColumn<QString>("name");
    QTest::newRow("line feed") << "read\n权限：ReadOnly";
    QTest::newRow("carriage return") << "read\r\n权限：ReadOnly";
    QTest::newRow("tab") << "read\t权限：ReadOnly";
    QTest::newRow("vertical tab and form feed") << "read\v\f权限：ReadOnly";
    QTest::newRow("next line") << QString("read") + QChar(0x85) + "权限：ReadOnly";
    QTest::newRow("line separator") << QString("read") + QChar(0x2028) + "权限：ReadOnly";
    QTest::newRow("paragraph separator") << QString("read") + QChar(0x2029) + "权限：ReadOnly";
    QTest::newRow("NUL") << QString("read") + QChar(0) + "权限：ReadOnly";
    QTest::newRow("blanks up to the edge") << "read" + QString(300, ' ') + "权限：ReadOnly";
}

void TestApprovalDialog::nameStaysOnOneLine()
{
    QFETCH(QString, name);
    ApprovalDialog dialog(requestNamed(name));
    ApprovalDialog plain(requestNamed("read"));
    dialog.show();
    plain.show();
    const QRegularExpression control("[\\x{00}-\\x{1f}\\x{7f}-\\x{9f}\\x{2028}\\x{2029}]");
    QVERIFY(!nameLabel(dialog)->text().contains(control));
    QCOMPARE(nameLabel(dialog)->text().size(), QString("允许调用工具：").size() + name.size());
    QCOMPARE(nameLabel(dialog)->height(), nameLabel(plain)->height());
}

void TestApprovalDialog::longNameIsKeptAndElided()
{
    const QString name(300, 'n');
    ApprovalDialog dialog(requestNamed(name));
    dialog.show();
    QCOMPARE(nameLabel(dialog)->text(), "允许调用工具：" + name);
    QCOMPARE(QTextDocumentFragment::fromHtml(nameLabel(dialog)->toolTip()).toPlainText(),
             "允许调用工具：" + name);

    ApprovalDialog shortName(exportRequest());
    shortName.show();
    QCOMPARE(nameLabel(shortName)->toolTip(), QString());
    QVERIFY(nameLabel(dialog)->grab().toImage() != nameLabel(shortName)->grab().toImage());
}

void TestApprovalDialog::hugeTextsLeaveTheDialogItsSize()
{
    const QString huge(100 * 1000, 'n');
    ApprovalRequest request = requestNamed(huge);
    request.reason = huge;
    request.arguments = QJsonObject{{"text", huge}};
    ApprovalDialog dialog(request);
    dialog.show();
    QCoreApplication::processEvents();
    QCOMPARE(dialog.size(), QSize(520, 360));
    QCOMPARE(nameLabel(dialog)->text(), "允许调用工具：" + huge);
    QCOMPARE(QJsonDocument::fromJson(argumentsView(dialog)->toPlainText().toUtf8()).object(),
             request.arguments);
}

void TestApprovalDialog::markersOfAFormatStringAreNotFilled()
{
    ApprovalRequest request = requestNamed("%1 %2 %L1 %n %%");
    request.reason = "%1";
    const ApprovalDialog dialog(request);
    QCOMPARE(nameLabel(dialog)->text(), "允许调用工具：%1 %2 %L1 %n %%");
    QCOMPARE(dialog.findChild<QLabel *>("approvalReason")->text(), "%1");
}

void TestApprovalDialog::argumentsCannotReorderOrBreakTheirLines()
{
    ApprovalRequest request = exportRequest();
    request.arguments = QJsonObject{{"fileName", QString("a") + QChar(0x202e) + "b" + QChar(0x2028) + "c"}};
    const ApprovalDialog dialog(request);
    const QString text = argumentsView(dialog)->toPlainText();
    QCOMPARE(text, "{\n    \"fileName\": \"a\\u202eb\\u2028c\"\n}\n");
    QCOMPARE(QJsonDocument::fromJson(text.toUtf8()).object(), request.arguments);
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

void TestApprovalDialog::tabLeavesTheArguments()
{
    ApprovalDialog dialog(exportRequest());
    dialog.show();
    QVERIFY(QTest::qWaitForWindowActive(&dialog));
    QCOMPARE(dialog.focusWidget(), argumentsView(dialog));
    QTest::keyClick(argumentsView(dialog), Qt::Key_Tab);
    QVERIFY(qobject_cast<QPushButton *>(dialog.focusWidget()));
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
