#include "support/heapusage.h"

#include <qtagent/widgets/approvaldialog.h>

#include <QJsonArray>
#include <QJsonDocument>
#include <QLabel>
#include <QPlainTextEdit>
#include <QScrollArea>
#include <QScrollBar>
#include <QTextBlock>
#include <QTextDocumentFragment>
#include <QtTest>

using namespace MireloQtLib::QtAgent;

namespace {

constexpr QSize dialogSize(520, 360);

ApprovalRequest exportRequest()
{
    ApprovalRequest request;
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

ApprovalRequest requestWithReason(const QString &reason)
{
    ApprovalRequest request = exportRequest();
    request.reason = reason;
    return request;
}

ApprovalRequest requestWith(const QJsonObject &arguments)
{
    ApprovalRequest request = exportRequest();
    request.arguments = arguments;
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

QString argumentsText(const ApprovalDialog &dialog)
{
    return dialog.findChild<QPlainTextEdit *>("approvalArguments")->toPlainText();
}

// The blocks of the document, which are the lines that the view shows beside those that it wraps.
QStringList argumentLines(const ApprovalDialog &dialog)
{
    QStringList lines;
    const QTextDocument *document = dialog.findChild<QPlainTextEdit *>("approvalArguments")->document();
    for (QTextBlock block = document->begin(); block.isValid(); block = block.next())
        lines.append(block.text());
    return lines;
}

QJsonObject parsed(const QString &json)
{
    return QJsonDocument::fromJson(json.toUtf8()).object();
}

// The JSON that was shown, without the breaks in its long lines.
QString joined(QString lines)
{
    return lines.remove("\n↪ ");
}

QString characterOf(uint codePoint)
{
    return QChar::requiresSurrogates(codePoint)
             ? QString(QChar(QChar::highSurrogate(codePoint))) + QChar(QChar::lowSurrogate(codePoint))
             : QString(QChar(ushort(codePoint)));
}

bool isWhollyVisible(const QWidget *widget)
{
    return widget->visibleRegion().boundingRect() == widget->rect();
}

} // namespace

class TestApprovalDialogTexts : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void labelsArePlainText();
    void markersOfAFormatStringAreNotFilled();
    void longNameIsKeptAndElided();
    void hiddenCharactersOfANameAreEscapes_data();
    void hiddenCharactersOfANameAreEscapes();
    void reasonKeepsItsLines_data();
    void reasonKeepsItsLines();
    void reasonIsShownWhole();
    void cutOfAHugeReasonIsSaid();
    void hugeTextsLeaveTheDialogItsSize();
    void hiddenCharactersOfArgumentsAreEscapes_data();
    void hiddenCharactersOfArgumentsAreEscapes();
    void hiddenCharactersAreEscapesAtEachPlace();
    void noCodePointBreaksALine();
    void longLinesGoOnBelowAMark();
    void longLinesAreBrokenBetweenCharacters_data();
    void longLinesAreBrokenBetweenCharacters();
    void endlessAccentsAreBrokenToo();
    void argumentsThatIndentingBlowsUpAreCompact_data();
    void argumentsThatIndentingBlowsUpAreCompact();
    void argumentsOfManyLinesAreIndented();
};

void TestApprovalDialogTexts::labelsArePlainText()
{
    ApprovalRequest request = requestNamed("<b>x</b><br>权限：ReadOnly");
    request.reason = "<a href='http://127.0.0.1/'>x</a>";
    const ApprovalDialog dialog(request);
    QCOMPARE(nameLabel(dialog)->text(), "允许调用工具：<b>x</b><br>权限：ReadOnly");
    QCOMPARE(reasonLabel(dialog)->text(), "<a href='http://127.0.0.1/'>x</a>");
    for (const QLabel *label : dialog.findChildren<QLabel *>())
        QCOMPARE(label->textFormat(), Qt::PlainText);
}

void TestApprovalDialogTexts::markersOfAFormatStringAreNotFilled()
{
    ApprovalRequest request = requestNamed("%1 %2 %L1 %n %%");
    request.reason = "%1";
    const ApprovalDialog dialog(request);
    QCOMPARE(nameLabel(dialog)->text(), "允许调用工具：%1 %2 %L1 %n %%");
    QCOMPARE(reasonLabel(dialog)->text(), "%1");
}

void TestApprovalDialogTexts::longNameIsKeptAndElided()
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

void TestApprovalDialogTexts::hiddenCharactersOfANameAreEscapes_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("shown");
    QTest::newRow("line feed") << "read\n权限：ReadOnly"
                               << "read\\u000a权限：ReadOnly";
    QTest::newRow("carriage return and line feed") << "a\r\nb"
                                                   << "a\\u000d\\u000ab";
    QTest::newRow("tab") << "a\tb"
                         << "a\\u0009b";
    QTest::newRow("NUL") << QString("a") + QChar(0) + "b"
                         << "a\\u0000b";
    QTest::newRow("next line") << "a" + characterOf(0x85) + "b"
                               << "a\\u0085b";
    QTest::newRow("line separator") << "a" + characterOf(0x2028) + "b"
                                    << "a\\u2028b";
    QTest::newRow("right to left override") << "read_" + characterOf(0x202e) + "elif_eteled"
                                            << "read_\\u202eelif_eteled";
    QTest::newRow("zero width space") << "a" + characterOf(0x200b) + "b"
                                      << "a\\u200bb";
    QTest::newRow("tag") << "a" + characterOf(0xe0041) + "b"
                         << "a\\udb40\\udc41b";
    QTest::newRow("half of a pair") << "a" + QString(QChar(0xd83d)) << "a\\ud83d";
    QTest::newRow("no-break space") << "a" + characterOf(0xa0) + "b"
                                    << "a\\u00a0b";
    QTest::newRow("blanks, accents, Chinese and a face") << "a  e\u0301 工具 😀"
                                                         << "a  e\u0301 工具 😀";
}

void TestApprovalDialogTexts::hiddenCharactersOfANameAreEscapes()
{
    QFETCH(QString, name);
    QFETCH(QString, shown);
    ApprovalDialog dialog(requestNamed(name));
    ApprovalDialog plain(requestNamed("read"));
    dialog.show();
    plain.show();
    QCOMPARE(nameLabel(dialog)->text(), "允许调用工具：" + shown);
    QCOMPARE(nameLabel(dialog)->height(), nameLabel(plain)->height());
}

void TestApprovalDialogTexts::reasonKeepsItsLines_data()
{
    QTest::addColumn<QString>("reason");
    QTest::addColumn<QString>("shown");
    QTest::newRow("line feed") << "a\nb"
                               << "a\nb";
    QTest::newRow("carriage return and line feed") << "a\r\nb"
                                                   << "a\nb";
    QTest::newRow("carriage return") << "a\rb"
                                     << "a\nb";
    QTest::newRow("an empty line") << "a\n\nb"
                                   << "a\n\nb";
    QTest::newRow("line separator") << "a" + characterOf(0x2028) + "b"
                                    << "a\\u2028b";
    QTest::newRow("tab and right to left override") << "a\t" + characterOf(0x202e) + "b"
                                                    << "a\\u0009\\u202eb";
    QTest::newRow("500 lines") << QString("a line of a reason\n").repeated(500)
                               << QString("a line of a reason\n").repeated(500);
}

void TestApprovalDialogTexts::reasonKeepsItsLines()
{
    QFETCH(QString, reason);
    QFETCH(QString, shown);
    ApprovalDialog dialog(requestWithReason(reason));
    dialog.show();
    QCoreApplication::processEvents();
    QCOMPARE(reasonLabel(dialog)->text(), shown);
    QCOMPARE(dialog.size(), dialogSize);
}

void TestApprovalDialogTexts::reasonIsShownWhole()
{
    ApprovalDialog oneLine(requestWithReason("one line"));
    oneLine.show();
    QVERIFY(isWhollyVisible(reasonLabel(oneLine)));
    ApprovalDialog fourLines(requestWithReason("a\nb\nc\nd"));
    fourLines.show();
    QVERIFY(isWhollyVisible(reasonLabel(fourLines)));
    QVERIFY(reasonLabel(fourLines)->height() > 3 * reasonLabel(oneLine)->height());
    for (const QString &reason : {QString("line\n").repeated(500), QString(1000, 'n')}) {
        ApprovalDialog scrolling(requestWithReason(reason));
        scrolling.show();
        QCoreApplication::processEvents();
        const auto *area = scrolling.findChild<QScrollArea *>();
        QVERIFY(area->verticalScrollBar()->isVisible());
        QCOMPARE(reasonLabel(scrolling)->width(), area->viewport()->width());
        QVERIFY(!isWhollyVisible(reasonLabel(scrolling)));
        QVERIFY(area->height() <= 5 * area->fontMetrics().lineSpacing());
    }
}

void TestApprovalDialogTexts::cutOfAHugeReasonIsSaid()
{
    const ApprovalDialog whole(requestWithReason(QString(50000, 'n')));
    QCOMPARE(reasonLabel(whole)->text(), QString(50000, 'n'));
    const ApprovalDialog cut(requestWithReason(QString(50001, 'n')));
    QCOMPARE(reasonLabel(cut)->text(), QString(50000, 'n') + "…\n（共 50001 个字符，以上是前 50000 个。）");
}

void TestApprovalDialogTexts::hugeTextsLeaveTheDialogItsSize()
{
    const QString huge(100 * 1000, 'n');
    ApprovalRequest request = requestNamed(huge);
    request.reason = huge;
    request.arguments = QJsonObject{{"text", huge}};
    ApprovalDialog dialog(request);
    dialog.show();
    QCoreApplication::processEvents();
    QCOMPARE(dialog.size(), dialogSize);
    QCOMPARE(nameLabel(dialog)->text(), "允许调用工具：" + huge);
    QCOMPARE(parsed(joined(argumentsText(dialog))), request.arguments);
}

void TestApprovalDialogTexts::hiddenCharactersOfArgumentsAreEscapes_data()
{
    QTest::addColumn<QString>("value");
    QTest::addColumn<QString>("shown");
    QTest::newRow("right to left override") << "a" + characterOf(0x202e) + "b"
                                            << "a\\u202eb";
    QTest::newRow("line and frame breaks of a document")
        << "a" + characterOf(0x2028) + characterOf(0x2029) + characterOf(0xfdd0) + characterOf(0xfdd1)
        << "a\\u2028\\u2029\\ufdd0\\ufdd1";
    QTest::newRow("zero width") << characterOf(0x200b) + characterOf(0x200d) + characterOf(0x2060)
                                       + characterOf(0xfeff)
                                << "\\u200b\\u200d\\u2060\\ufeff";
    QTest::newRow("soft hyphen and object") << characterOf(0xad) + characterOf(0xfffc) << "\\u00ad\\ufffc";
    QTest::newRow("fillers and variation selectors")
        << characterOf(0x3164) + characterOf(0x2800) + characterOf(0xfe0f) + characterOf(0xe0100)
        << "\\u3164\\u2800\\ufe0f\\udb40\\udd00";
    QTest::newRow("other blanks") << characterOf(0xa0) + characterOf(0x2003) + characterOf(0x3000)
                                  << "\\u00a0\\u2003\\u3000";
    QTest::newRow("private use") << characterOf(0xe000) + characterOf(0x10fffd) << "\\ue000\\udbff\\udffd";
    QTest::newRow("halves of pairs") << QString(QChar(0xdc00)) + QChar(0xd800) + "a"
                                     << "\\udc00\\ud800a";
    QTest::newRow("what JSON escapes by itself")
        << QString("\n\t\"\\") + characterOf(1) << "\\n\\t\\\"\\\\\\u0001";
    QTest::newRow("an escape that is text") << "\\u202e"
                                            << "\\\\u202e";
    QTest::newRow("the mark of a long line") << "a↪ b"
                                             << "a\\u21aa b";
    QTest::newRow("accents, Chinese, Thai and a face") << "e\u0301 工具 ที่ 😀"
                                                       << "e\u0301 工具 ที่ 😀";
}

void TestApprovalDialogTexts::hiddenCharactersOfArgumentsAreEscapes()
{
    QFETCH(QString, value);
    QFETCH(QString, shown);
    const ApprovalDialog dialog(requestWith({{"value", value}}));
    QCOMPARE(argumentsText(dialog), "{\n    \"value\": \"" + shown + "\"\n}\n");
    QCOMPARE(parsed(argumentsText(dialog)), QJsonObject({{"value", value}}));
}

void TestApprovalDialogTexts::hiddenCharactersAreEscapesAtEachPlace()
{
    const QString hidden = characterOf(0x202e);
    const ApprovalDialog dialog(
        requestWith({{hidden, QJsonArray{hidden, QJsonObject{{"a" + hidden, hidden}}}}}));
    const QStringList lines{"{",
                            "    \"\\u202e\": [",
                            "        \"\\u202e\",",
                            "        {",
                            "            \"a\\u202e\": \"\\u202e\"",
                            "        }",
                            "    ]",
                            "}",
                            ""};
    QCOMPARE(argumentLines(dialog), lines);
}

// A member for 64 code points, so that no line is long.
void TestApprovalDialogTexts::noCodePointBreaksALine()
{
    QJsonObject arguments;
    QStringList expected{"{"};
    for (uint first = 0; first < 0x110000; first += 64) {
        QString text;
        for (uint codePoint = first; codePoint < first + 64; ++codePoint)
            text += characterOf(codePoint);
        arguments.insert(QString("%1").arg(first, 6, 16, QLatin1Char('0')), "[" + text + "]");
    }
    const ApprovalDialog dialog(requestWith(arguments));
    const QStringList lines = argumentLines(dialog);
    QCOMPARE(lines.size(), arguments.size() + 3);
    const QRegularExpression member("^    \"[0-9a-f]{6}\": \"\\[.+\\]\",?$");
    for (int line = 1; line <= arguments.size(); ++line)
        QVERIFY2(member.match(lines.at(line)).hasMatch(), qPrintable(lines.at(line)));
    QCOMPARE(parsed(lines.join('\n')), arguments);
}

void TestApprovalDialogTexts::longLinesGoOnBelowAMark()
{
    const ApprovalDialog dialog(requestWith({{"a", QString(2500, 'x')}}));
    const QString begin = "    \"a\": \"";
    const QStringList lines{"{",
                            begin + QString(1000 - begin.size(), 'x'),
                            "↪ " + QString(1000, 'x'),
                            "↪ " + QString(500 + begin.size(), 'x') + "\"",
                            "}",
                            ""};
    QCOMPARE(argumentLines(dialog), lines);
}

void TestApprovalDialogTexts::longLinesAreBrokenBetweenCharacters_data()
{
    QTest::addColumn<QString>("character");
    QTest::addColumn<QString>("shown");
    QTest::newRow("a pair") << characterOf(0x1f600) << characterOf(0x1f600);
    QTest::newRow("an escape") << characterOf(0x200b) << "\\u200b";
    QTest::newRow("an escape of JSON") << "\n"
                                       << "\\n";
    QTest::newRow("a backslash") << "\\"
                                 << "\\\\";
    QTest::newRow("an accent") << "e" + characterOf(0x301) << "e" + characterOf(0x301);
}

void TestApprovalDialogTexts::longLinesAreBrokenBetweenCharacters()
{
    QFETCH(QString, character);
    QFETCH(QString, shown);
    for (int shift = 0; shift < 6; ++shift) {
        const QJsonObject arguments{{"a", QString(shift, 'x') + character.repeated(2000)}};
        const ApprovalDialog dialog(requestWith(arguments));
        QStringList lines = argumentLines(dialog);
        QCOMPARE(parsed(joined(lines.join('\n'))), arguments);
        lines = lines.mid(2, lines.size() - 5); // those that only continue
        QVERIFY(lines.size() > 1);
        for (QString line : lines) {
            QVERIFY(line.size() > 990 && line.size() <= 1002);
            QVERIFY(line.startsWith("↪ "));
            QCOMPARE(line.mid(2).remove(shown), QString());
        }
    }
}

void TestApprovalDialogTexts::endlessAccentsAreBrokenToo()
{
    const QJsonObject arguments{{"a", "e" + characterOf(0x301).repeated(5000)}};
    const ApprovalDialog dialog(requestWith(arguments));
    const QStringList lines = argumentLines(dialog);
    for (const QString &line : lines)
        QVERIFY(line.size() <= 1002);
    QCOMPARE(parsed(joined(lines.join('\n'))), arguments);
}

void TestApprovalDialogTexts::argumentsThatIndentingBlowsUpAreCompact_data()
{
    QTest::addColumn<QByteArray>("value");
    const auto nested = [](const QByteArray &begin, const QByteArray &inside, const QByteArray &end) {
        return begin.repeated(1000) + inside + end.repeated(1000);
    };
    QByteArray numbers = QByteArray("1,").repeated(49000) + "1";
    QTest::newRow("nested arrays") << nested("[", numbers, "]");
    QTest::newRow("nested objects") << nested("{\"a\":", "[" + numbers + "]", "}");
    QTest::newRow("numbers") << "[" + numbers + "]";
    QTest::newRow("members, and the most of them deep")
        << "[" + QByteArray("0,").repeated(100) + nested("[", numbers, "]") + "]";
}

void TestApprovalDialogTexts::argumentsThatIndentingBlowsUpAreCompact()
{
    QFETCH(QByteArray, value);
    const QJsonObject arguments = parsed("{\"a\":" + value + "}");
    QVERIFY(!arguments.isEmpty());
    const qint64 heapBefore = heapUsage().value_or(0);
    const ApprovalDialog dialog(requestWith(arguments));
    QVERIFY(heapUsage().value_or(0) - heapBefore < 4 * 1024 * 1024);

    const QStringList lines = argumentLines(dialog);
    QVERIFY(lines.size() < 200);
    QVERIFY(lines.first().startsWith("{\"a\":"));
    QVERIFY(lines.at(1).startsWith("↪ "));
    QCOMPARE(lines.last(), "");
    QCOMPARE(parsed(joined(lines.join('\n'))), arguments);
}

void TestApprovalDialogTexts::argumentsOfManyLinesAreIndented()
{
    QJsonArray numbers;
    for (int i = 0; i < 19990; ++i)
        numbers.append(i);
    const ApprovalDialog dialog(requestWith({{"a", numbers}}));
    const QStringList lines = argumentLines(dialog);
    QCOMPARE(lines.size(), numbers.size() + 5);
    QCOMPARE(lines.at(2), "        0,");
}

QTEST_MAIN(TestApprovalDialogTexts)
#include "tst_approvaldialog_texts.moc"
