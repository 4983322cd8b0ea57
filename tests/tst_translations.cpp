#include <QCoreApplication>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QTranslator>
#include <QXmlStreamReader>
#include <QtTest>

class TestTranslations : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void nothingIsUntranslated();
    void placesStayInTheirTexts();
    void compiledTextsAreFound();

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
    lupdate.start(LUPDATE,
                  {"-silent", "-I", ".", "-locations", "none", "-no-obsolete", "assistant", "qtagent/widgets",
                   "qtagent/agentloop.cpp", "qtagent/agentexecutor.h", "-ts", copy});
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

QTEST_GUILESS_MAIN(TestTranslations)
#include "tst_translations.moc"
