#include "support/offlineconfiguration.h"

#include <QColor>
#include <QImage>
#include <QProcess>
#include <QRegularExpression>
#include <QTcpServer>
#include <QtTest>

namespace {

constexpr int tourLimitMs = 120000;

struct Outcome
{
    int status = -1;
    QStringList lines;
};

// A profile of a service that nobody provides.
QJsonObject unreachableProfile()
{
    QTcpServer server;
    server.listen(QHostAddress::LocalHost);
    const quint16 closedPort = server.serverPort();
    server.close();
    return {{"name", "unreachable"},
            {"provider", "openai"},
            {"baseUrl", QString("http://127.0.0.1:%1/v1").arg(closedPort)},
            {"apiKey", "key"},
            {"model", "model"}};
}

// The variable names an installed program in place of the one in the build tree.
QString tourProgram()
{
    return qEnvironmentVariable("ORVANE_TOUR", ORVANE_TOUR);
}

Outcome runTour(const QStringList &arguments, const QString &temporaryFolder)
{
    QProcess tour;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("TMPDIR", temporaryFolder);
    tour.setProcessEnvironment(environment);
    tour.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    tour.start(tourProgram(), arguments);
    if (!tour.waitForFinished(tourLimitMs) || tour.exitStatus() != QProcess::NormalExit)
        return {};
    const QString output = QString::fromUtf8(tour.readAllStandardOutput());
    return {tour.exitCode(), output.split('\n', Qt::SkipEmptyParts)};
}

QStringList pictures(const QString &folder)
{
    return QDir(folder).entryList({"*.png"}, QDir::Files, QDir::Name);
}

// The report of each page names its picture.
QStringList reportedPictures(const QStringList &reports)
{
    QStringList names;
    for (const QString &report : reports)
        names.append(QString(report).remove(QRegularExpression("( ok| failed: .*)$")) + ".png");
    return names;
}

// The ground that the sources' style sheet gives to every widget.
QColor groundOfStyleSheet()
{
    QFile file(ORVANE_STYLE_SHEET);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    const QRegularExpression rule("\nQWidget \\{\\s*background-color: (#[0-9a-f]{6});");
    return QColor(rule.match(QString::fromUtf8(file.readAll())).captured(1));
}

} // namespace

class TestTour : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void mockModelAnswersWhateverIsConfigured();
    void fractionalScreenScaleIsRounded();
    void windowHasTheGroundOfTheStyleSheet();
    void emptyStyleSheetPrintsNothing();
    void realModelThatFailsEndsWithStatusOne();
    void wrongArgumentsEndWithStatusOne_data();
    void wrongArgumentsEndWithStatusOne();
};

void TestTour::mockModelAnswersWhateverIsConfigured()
{
    const OfflineConfiguration configuration;
    configuration.write(unreachableProfile());
    const QString folder = configuration.path() + "/new/pictures";

    const Outcome outcome = runTour({folder}, configuration.path());

    QCOMPARE(outcome.status, 0);
    QVERIFY(!outcome.lines.isEmpty());
    QCOMPARE(outcome.lines.first(), "01-基础对话 ok");
    for (const QString &line : outcome.lines)
        QVERIFY2(line.endsWith(" ok"), qPrintable(line));
    for (const QString &picture : reportedPictures(outcome.lines))
        QCOMPARE(QImage(folder + '/' + picture).size(), QSize(1280, 820));
}

// Borders and the table's lines stay sharp: 1.5 becomes 2 with both majors of Qt.
void TestTour::fractionalScreenScaleIsRounded()
{
    const OfflineConfiguration configuration;
    qputenv("QT_FONT_DPI", "144");

    const Outcome outcome = runTour({configuration.path()}, configuration.path());
    qunsetenv("QT_FONT_DPI");

    QCOMPARE(outcome.status, 0);
    const QString picture = reportedPictures(outcome.lines).first();
    QCOMPARE(QImage(configuration.path() + '/' + picture).size(), QSize(2560, 1640));
}

void TestTour::windowHasTheGroundOfTheStyleSheet()
{
    const OfflineConfiguration configuration;

    const Outcome outcome = runTour({configuration.path()}, configuration.path());

    QCOMPARE(outcome.status, 0);
    QVERIFY(!outcome.lines.isEmpty());
    QVERIFY(groundOfStyleSheet().isValid());
    for (const QString &picture : reportedPictures(outcome.lines)) {
        const QImage image(configuration.path() + '/' + picture);
        QCOMPARE(image.pixelColor(image.rect().bottomRight()), groundOfStyleSheet());
    }
}

void TestTour::emptyStyleSheetPrintsNothing()
{
    const QTemporaryDir folder;
    const QString program = folder.filePath("orvane-tour");
    QVERIFY(QFile::copy(tourProgram(), program));
    QVERIFY(QDir(folder.path()).mkdir("styles"));
    QFile sheet(folder.filePath("styles/dark.qss"));
    QVERIFY(sheet.open(QIODevice::WriteOnly));
    sheet.close();

    QProcess tour;
    tour.start(program, {"--help"});

    QVERIFY(tour.waitForFinished());
    QCOMPARE(tour.exitCode(), 0);
    QVERIFY(!tour.readAllStandardOutput().isEmpty());
    QCOMPARE(tour.readAllStandardError(), QByteArray());
}

void TestTour::realModelThatFailsEndsWithStatusOne()
{
    const OfflineConfiguration configuration;
    configuration.write(unreachableProfile());

    Outcome outcome = runTour({"--real"}, configuration.path());

    QCOMPARE(outcome.status, 1);
    QVERIFY(outcome.lines.size() > 1);
    const QString folder = outcome.lines.takeFirst();
    QCOMPARE(QFileInfo(folder).path(), configuration.path());
    QVERIFY2(outcome.lines.first().startsWith("01-基础对话 failed: OpenAI-compatible request failed."),
             qPrintable(outcome.lines.first()));
    for (const QString &picture : reportedPictures(outcome.lines))
        QVERIFY2(pictures(folder).contains(picture), qPrintable(picture));
}

void TestTour::wrongArgumentsEndWithStatusOne_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::newRow("two folders") << QStringList{"one", "two"};
    QTest::newRow("unknown option") << QStringList{"--unknown"};
    QTest::newRow("folder that cannot be made") << QStringList{"/dev/null/pictures"};
}

void TestTour::wrongArgumentsEndWithStatusOne()
{
    QFETCH(QStringList, arguments);
    const OfflineConfiguration configuration;

    QCOMPARE(runTour(arguments, configuration.path()).status, 1);
    QVERIFY(!QFile::exists("one"));
}

QTEST_GUILESS_MAIN(TestTour)
#include "tst_tour.moc"
