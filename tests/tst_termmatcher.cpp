#include "support/heapusage.h"

#include <qtagent/termmatcher_p.h>

#include <QtTest>

#include <algorithm>

using namespace MireloQtLib::QtAgent;

namespace {

bool isTermCharacter(QChar character)
{
    return (character >= 'a' && character <= 'z') || (character >= '0' && character <= '9')
        || character == '_';
}

QStringList termsOf(const QString &question)
{
    QString words = question.toLower();
    std::replace_if(
        words.begin(), words.end(), [](QChar character) { return !isTermCharacter(character); }, ' ');
    QStringList terms = words.split(' ', Qt::SkipEmptyParts);
    terms.removeDuplicates();
    return terms;
}

/// Counts as the matcher's contract says it.
int plainCount(const QString &question, const QString &document)
{
    const QStringList terms = termsOf(question);
    const QString lowered = document.toLower();
    return static_cast<int>(std::count_if(
        terms.cbegin(), terms.cend(), [&lowered](const QString &term) { return lowered.contains(term); }));
}

int count(const QString &question, const QString &document)
{
    return TermMatcher(question).countTermsIn(document);
}

QString textOf(uint codePoint)
{
    if (QChar::requiresSurrogates(codePoint))
        return QString(QChar(QChar::highSurrogate(codePoint))) + QChar(QChar::lowSurrogate(codePoint));
    return QString(QChar(static_cast<ushort>(codePoint)));
}

/// Returns the character between two words, so that whatever it lower-cases to can join or part them.
QString embedded(uint codePoint)
{
    return "Pump" + textOf(codePoint) + "Valve";
}

} // namespace

class TestTermMatcher : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void termsAreCounted_data();
    void termsAreCounted();
    void everyCharacterOfADocumentFoldsAsToLower();
    void everyCharacterOfAQuestionFoldsAsToLower();
    void loneSurrogatesSeparateWhateverToLowerMakesOfThem();
    void randomTextsCountAsThePlainWay_data();
    void randomTextsCountAsThePlainWay();
    void termIsFoundAtEveryPlace();
    void documentsDoNotInfluenceEachOther();
    void longQuestionIsMatched();
    void longQuestionTakesLittleMemory();
};

void TestTermMatcher::termsAreCounted_data()
{
    const QChar dottedI(0x0130);
    const QChar kelvin(0x212a);
    QTest::addColumn<QString>("question");
    QTest::addColumn<QString>("document");
    QTest::addColumn<int>("terms");
    QTest::newRow("a term within a word") << "net"
                                          << "network" << 1;
    QTest::newRow("letter case does not count") << "NeT"
                                                << "nEtwork" << 1;
    QTest::newRow("a repeated term counts once") << "net net NET"
                                                 << "net net" << 1;
    QTest::newRow("digits and underscores belong to terms") << "a_1 2"
                                                            << "A_12" << 2;
    QTest::newRow("other characters separate terms") << "pump-001, status?"
                                                     << "PUMP 001" << 2;
    QTest::newRow("a separator in the document parts a term") << "pump001"
                                                              << "pump-001" << 0;
    QTest::newRow("Chinese text has no terms") << "什么是路由"
                                               << "什么是路由" << 0;
    QTest::newRow("terms between Chinese characters") << "什么是RAG检索"
                                                      << "使用rag的检索" << 1;
    QTest::newRow("no terms") << "?!"
                              << "a" << 0;
    QTest::newRow("an empty document") << "a"
                                       << "" << 0;
    QTest::newRow("terms within each other") << "she he hers her"
                                             << "ushers" << 4;
    QTest::newRow("a term that ends another one") << "abcd bc"
                                                  << "xabcx" << 1;
    QTest::newRow("overlapping terms") << "abab baba"
                                       << "ababa" << 2;
    QTest::newRow("a false start") << "aab"
                                   << "aaab" << 1;
    QTest::newRow("a term at the end") << "end"
                                       << "the end" << 1;
    QTest::newRow("a term that the document cuts") << "ending"
                                                   << "the endin" << 0;
    QTest::newRow("an accented letter separates") << QString::fromUtf8("caf\xc3\xa9s") << "caf s" << 2;
    QTest::newRow("a capital I with a dot ends a term") << "stanbul" + QString(dottedI) << "STANBULI" << 1;
    QTest::newRow("a capital I with a dot parts a term") << "istanbul" << QString(dottedI) + "stanbul" << 0;
    QTest::newRow("a capital I with a dot holds an i") << "xi stanbul"
                                                       << "X" + QString(dottedI) + "Stanbul" << 2;
    QTest::newRow("the Kelvin sign is a k") << "kelvin" << QString(kelvin) + "ELVIN" << 1;
    QTest::newRow("the Kelvin sign in a question") << "273" + QString(kelvin) << "at 273k" << 1;
    QTest::newRow("a NUL separates") << "a" + QString(QChar(0)) + "b"
                                     << "b" + QString(QChar(0)) + "a" << 2;
}

void TestTermMatcher::termsAreCounted()
{
    QFETCH(QString, question);
    QFETCH(QString, document);
    QFETCH(int, terms);
    QCOMPARE(count(question, document), terms);
    QCOMPARE(plainCount(question, document), terms);
}

void TestTermMatcher::everyCharacterOfADocumentFoldsAsToLower()
{
    const QString question = "a b c d e f g h i j k l m n o p q r s t u v w x y z 0 1 2 3 4 5 6 7 8 9 _ "
                             "pumpvalve pumpi pumpk ivalve kvalve pumpivalve pumpkvalve";
    TermMatcher matcher(question);
    const int termsAround = plainCount(question, "pump valve");
    for (uint codePoint = 0; codePoint <= QChar::LastValidCodePoint; ++codePoint) {
        if (QChar::isSurrogate(codePoint))
            continue;
        const QString document = embedded(codePoint);
        const QString lowered = document.toLower();
        const auto termCharacters = std::count_if(lowered.cbegin(), lowered.cend(), isTermCharacter);
        const bool addsNone = termCharacters == QStringLiteral("pumpvalve").size();
        const int expected = addsNone ? termsAround : plainCount(question, document);
        if (matcher.countTermsIn(document) != expected)
            QFAIL(qPrintable(QStringLiteral("U+%1").arg(codePoint, 4, 16, QLatin1Char('0'))));
    }
}

void TestTermMatcher::everyCharacterOfAQuestionFoldsAsToLower()
{
    const QString document = "pumpvalve pumpivalve pumpkvalve";
    for (uint codePoint = 0; codePoint <= 0xffff; ++codePoint) {
        if (QChar::isSurrogate(codePoint))
            continue;
        const QString question = embedded(codePoint);
        if (count(question, document) != plainCount(question, document))
            QFAIL(qPrintable(QStringLiteral("U+%1").arg(codePoint, 4, 16, QLatin1Char('0'))));
    }
}

// QString::toLower() of Qt 5 joins a lone high surrogate with the character that follows it.
void TestTermMatcher::loneSurrogatesSeparateWhateverToLowerMakesOfThem()
{
    for (uint surrogate = 0xd800; surrogate <= 0xdfff; ++surrogate) {
        const QString text = embedded(surrogate);
        QCOMPARE(count("pump valve pumpvalve", text), 2);
        QCOMPARE(count(text, "valve pump"), 2);
    }
}

void TestTermMatcher::randomTextsCountAsThePlainWay_data()
{
    const QString strange = QStringLiteral("路") + QChar(0x0130) + QChar(0x212a);
    QTest::addColumn<QString>("characters");
    QTest::addColumn<int>("questionLength");
    QTest::addColumn<int>("documentLength");
    QTest::addColumn<int>("rounds");
    QTest::newRow("short questions") << "aAbB1_ " + strange << 24 << 40 << 2000;
    QTest::newRow("more beginnings of terms than have a row") << "ab1 " + strange << 20000 << 5000 << 3;
    QTest::newRow("long terms") << "aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaab" + strange << 20000 << 20000 << 3;
    QTest::newRow("many letters") << "abcdefghijklmnopqrstuvwxyz0123456789_       " << 20000 << 20000 << 3;
}

void TestTermMatcher::randomTextsCountAsThePlainWay()
{
    QFETCH(QString, characters);
    QFETCH(int, questionLength);
    QFETCH(int, documentLength);
    QFETCH(int, rounds);
    quint32 seed = 1;
    const auto randomText = [&](int length) {
        QString text;
        for (int i = 0; i < length; ++i) {
            seed = seed * 1664525 + 1013904223;
            text.append(characters.at(static_cast<int>((seed >> 16) % uint(characters.size()))));
        }
        return text;
    };
    for (int round = 0; round < rounds; ++round) {
        const QString question = randomText(questionLength);
        const QString document = randomText(documentLength / 2) + question.mid(100, documentLength / 2);
        QCOMPARE(count(question, document), plainCount(question, document));
    }
}

void TestTermMatcher::termIsFoundAtEveryPlace()
{
    const QString term = "pumpvalve";
    for (const QString &question :
         {term, term + " a_much_longer_term_than_any_document_here_could_ever_hold"}) {
        for (int length = static_cast<int>(term.size()); length <= 30; ++length) {
            for (int place = 0; place <= length - term.size(); ++place)
                QCOMPARE(count(question, QString(length, 'p').replace(place, term.size(), term)), 1);
        }
    }
}

void TestTermMatcher::documentsDoNotInfluenceEachOther()
{
    TermMatcher matcher("pump valve");
    QCOMPARE(matcher.countTermsIn("pump va"), 1);
    QCOMPARE(matcher.countTermsIn("lve pump"), 1);
    QCOMPARE(matcher.countTermsIn("pump valve"), 2);
    QCOMPARE(matcher.countTermsIn("pump valve"), 2);
    QCOMPARE(matcher.countTermsIn("fan"), 0);
}

void TestTermMatcher::longQuestionIsMatched()
{
    QStringList terms;
    for (int number = 0; number < 5000; ++number)
        terms.append(QStringLiteral("device%1").arg(number, 4, 10, QLatin1Char('0')));
    const QString text = terms.join(' ');
    QCOMPARE(count(text, text.toUpper()), 5000);
    QCOMPARE(count(text, "device0001 device4999 device5000"), 2);
}

void TestTermMatcher::longQuestionTakesLittleMemory()
{
    if (!heapUsage())
        QSKIP("nobody tells the heap's size here");
    constexpr int length = 1000 * 1000;
    quint32 seed = 1;
    QString question;
    for (int i = 0; i < length; ++i) {
        seed = seed * 1664525 + 1013904223;
        question.append(QChar('a' + (seed >> 16) % 26));
    }
    for (int separation : {length, 1000, 9}) {
        QString terms = question;
        for (int place = separation; place < length; place += separation)
            terms[place] = ' ';
        const qint64 before = *heapUsage();
        const TermMatcher matcher(terms);
        QVERIFY(*heapUsage() - before <= 28 * length + 350 * 1000);
    }
}

QTEST_APPLESS_MAIN(TestTermMatcher)
#include "tst_termmatcher.moc"
