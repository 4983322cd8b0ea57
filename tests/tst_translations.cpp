#include "support/assistantuser.h"

#include <assistant/modelchoice.h>

#include <QCoreApplication>
#include <QFile>
#include <QMenu>
#include <QMenuBar>
#include <QProcess>
#include <QTemporaryDir>
#include <QTranslator>
#include <QXmlStreamReader>
#include <QtTest>

#include <algorithm>

class TestTranslations : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void nothingIsUntranslated();
    void placesStayInTheirTexts();
    void compiledTextsAreFound();
    void mnemonicsAreUnique_data();
    void mnemonicsAreUnique();

private:
    struct Text
    {
        QString source;
        QString translation;
        QString type;
    };
    // Every plural form is a text of its own.
    static QVector<Text> textsIn(const QString &path);
};

QVector<TestTranslations::Text> TestTranslations::textsIn(const QString &path)
{
    QVector<Text> texts;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return texts;
    QXmlStreamReader reader(&file);
    QString source;
    QString type;
    while (!reader.atEnd()) {
        reader.readNext();
        if (!reader.isStartElement())
            continue;
        if (reader.name() == QLatin1String("source"))
            source = reader.readElementText();
        else if (reader.name() == QLatin1String("translation")) {
            type = reader.attributes().value("type").toString();
            const QString text = reader.readElementText(QXmlStreamReader::IncludeChildElements).trimmed();
            texts.append({source, text, type});
        }
    }
    return texts;
}

// The file is brought up to date with the sources first, in a copy.
void TestTranslations::nothingIsUntranslated()
{
    QTemporaryDir folder;
    const QString copy = folder.filePath("texts_en.ts");
    QVERIFY(QFile::copy(TRANSLATION, copy));
    QProcess lupdate;
    lupdate.setWorkingDirectory(SOURCE_DIR);
    lupdate.start(LUPDATE, {"-silent", "-I", ".", "-locations", "none", "-no-obsolete", "assistant",
                            "qtagent/widgets", "qtagent/agentloop.cpp", "qtagent/agentexecutor.h",
                            "qtagent/mockchatmodel.cpp", "qtagent/mockchatmodel.h", "-ts", copy});
    QVERIFY(lupdate.waitForFinished(60000));
    QCOMPARE(lupdate.exitCode(), 0);
    const QVector<Text> texts = textsIn(copy);
    QVERIFY(texts.size() > 100);
    QStringList unfinished;
    for (const Text &text : texts) {
        if (!text.type.isEmpty() || text.translation.isEmpty())
            unfinished.append(text.source);
    }
    QCOMPARE(unfinished, QStringList());
}

void TestTranslations::placesStayInTheirTexts()
{
    for (const Text &text : textsIn(TRANSLATION)) {
        for (const QString place : {"%1", "%2", "%3", "%n"})
            QVERIFY2(text.source.contains(place) == text.translation.contains(place),
                     qPrintable(text.source));
    }
}

void TestTranslations::compiledTextsAreFound()
{
    QTranslator translator;
    QVERIFY(translator.load("orvane-assistant_en", TRANSLATIONS_DIR));
    QCOMPARE(translator.translate("ChatPage", "发送(&S)"), "&Send");
    QCOMPARE(translator.translate("ProfileForm", "服务有 %n 个模型。", nullptr, 1),
             "The service has %n model.");
    QCOMPARE(translator.translate("ProfileForm", "服务有 %n 个模型。", nullptr, 2),
             "The service has %n models.");
}

namespace {

// The letters of @p texts that Alt presses, in order.
QString mnemonicsOf(const QStringList &texts)
{
    QString letters;
    for (const QString &text : texts) {
        const QString keys = QKeySequence::mnemonic(text).toString(QKeySequence::PortableText);
        letters += keys.section('+', -1);
    }
    std::sort(letters.begin(), letters.end());
    return letters;
}

bool isUnique(const QString &letters)
{
    return std::adjacent_find(letters.cbegin(), letters.cend()) == letters.cend();
}

QStringList textsOf(const QWidget *menu)
{
    QStringList texts;
    for (const QAction *action : menu->actions())
        texts.append(action->text());
    return texts;
}

} // namespace

void TestTranslations::mnemonicsAreUnique_data()
{
    QTest::addColumn<QString>("translation");
    QTest::newRow("Chinese") << "";
    QTest::newRow("English") << "orvane-assistant_en";
}

// With every bar shown that a window may show at once.
void TestTranslations::mnemonicsAreUnique()
{
    QFETCH(QString, translation);
    QTranslator translator;
    if (!translation.isEmpty())
        QVERIFY(translator.load(translation, TRANSLATIONS_DIR) && qApp->installTranslator(&translator));
    AssistantUser user;
    user.keep("Pumps", {"What is a pump?", "It moves water."});
    user.start();
    ModelChoice choice(loadProfiles({user.folder.filePath("profiles.json")}, {}));
    user.window->setModelChoice(&choice);
    user.window->setModel(&user.model, "test-model");
    QTest::keyClick(user.find<QListView>("conversationList"), Qt::Key_Delete);
    user.store.close();
    user.model.addFailure("no network");
    user.ask("What is a valve?");
    QTRY_VERIFY(user.find<NoticeBar>("failure")->isVisible());

    QStringList texts = textsOf(user.window->menuBar());
    for (const QAbstractButton *button : user.window->findChildren<QAbstractButton *>())
        texts.append(button->text());
    QVERIFY2(isUnique(mnemonicsOf(texts)), qPrintable(mnemonicsOf(texts)));
    QCOMPARE(mnemonicsOf(texts).size(), 12);
    for (const QMenu *menu : user.window->findChildren<QMenu *>())
        QVERIFY2(isUnique(mnemonicsOf(textsOf(menu))), qPrintable(menu->title()));
}

QTEST_MAIN(TestTranslations)
#include "tst_translations.moc"
