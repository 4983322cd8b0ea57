#include <assistant/failureadvice.h>

#include <QNetworkReply>
#include <QtTest>

using namespace MireloQtLib::QtAgent;

class TestFailureAdvice : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void failuresAreToldApart_data();
    void failuresAreToldApart();
    void kindsLookDifferent();
    void wordsOfTheServiceComeLast();
};

static ChatFailure failure(int status, int networkError = 0, const QString &code = {})
{
    ChatFailure result;
    result.httpStatus = status;
    result.networkError = networkError;
    result.code = code;
    return result;
}

void TestFailureAdvice::failuresAreToldApart_data()
{
    QTest::addColumn<ChatFailure>("failure");
    QTest::addColumn<int>("kind");
    QTest::addColumn<QString>("title");
    const auto row = [](const char *name, const ChatFailure &failure, FailureAdvice::Kind kind,
                        const QString &title) { QTest::newRow(name) << failure << int(kind) << title; };
    using Kind = FailureAdvice::Kind;
    row("no network", failure(0, QNetworkReply::HostNotFoundError), Kind::Offline, "无法连接到服务");
    row("nobody listens", failure(0, QNetworkReply::ConnectionRefusedError), Kind::Offline, "无法连接到服务");
    row("silence", failure(0, QNetworkReply::TimeoutError), Kind::Slow, "服务没有及时回答");
    row("wrong key", failure(401, 204), Kind::Key, "密钥无效");
    row("no right", failure(403, 201), Kind::Key, "密钥无效");
    row("no money", failure(402, 299), Kind::Money, "余额或配额不足");
    row("quota used up", failure(429, 299, "insufficient_quota"), Kind::Money, "余额或配额不足");
    row("credit used up", failure(429, 299, "exceeded_current_quota_error"), Kind::Money, "余额或配额不足");
    row("limit of the month", failure(429, 299, "monthly_spend_limit_exceeded"), Kind::Money,
        "余额或配额不足");
    ChatFailure waiting = failure(402, 299);
    waiting.retryAfterMs = 1000;
    row("no money for a second", waiting, Kind::Overloaded, "服务繁忙");
    row("asked too often", failure(429, 299), Kind::Overloaded, "服务繁忙");
    row("overloaded", failure(503, 403), Kind::Overloaded, "服务繁忙");
    row("too long", failure(400, 302, "context_length_exceeded"), Kind::TooLong, "对话对这个模型来说太长");
    row("unknown model", failure(404, 203), Kind::Address, "服务没有这个地址或模型");
    row("cut by the network", failure(200, QNetworkReply::RemoteHostClosedError), Kind::Cut, "回答中途断开");
    row("ended early", failure(200, 0, "stream_ended_early"), Kind::Cut, "回答中途断开");
    row("anything else", failure(400, 302), Kind::Other, "请求失败");
    row("nothing known", ChatFailure(), Kind::Other, "请求失败");
}

void TestFailureAdvice::failuresAreToldApart()
{
    QFETCH(ChatFailure, failure);
    QFETCH(int, kind);
    QFETCH(QString, title);
    const FailureAdvice advice = adviceFor(failure);
    QCOMPARE(int(advice.kind), kind);
    QCOMPARE(advice.title, title);
    QVERIFY(!advice.advice.isEmpty());
}

void TestFailureAdvice::kindsLookDifferent()
{
    const QVector<ChatFailure> failures{failure(0, QNetworkReply::HostNotFoundError),
                                        failure(0, QNetworkReply::TimeoutError),
                                        failure(401),
                                        failure(402),
                                        failure(503),
                                        failure(413),
                                        failure(404),
                                        failure(200, 0, "stream_ended_early"),
                                        failure(400)};
    QSet<int> icons;
    for (const ChatFailure &failed : failures)
        icons.insert(adviceFor(failed).icon);
    QCOMPARE(icons.size(), failures.size());
}

void TestFailureAdvice::wordsOfTheServiceComeLast()
{
    ChatFailure failed = failure(401);
    QCOMPARE(adviceFor(failed).text(failed, "Report\nwith details"),
             "密钥无效\n请在“设置 → 模型”中更正密钥。\nReport");
    failed.message = "bad\nkey";
    QVERIFY(adviceFor(failed).text(failed, "Report").endsWith("\nbad key"));
    failed.message = QString(100000, 'x');
    QVERIFY(adviceFor(failed).text(failed, "Report").endsWith("\n" + QString(299, 'x') + "…"));
    failed.message = QString(298, 'x') + "😀😀";
    QVERIFY(adviceFor(failed).text(failed, "Report").endsWith("\n" + QString(298, 'x') + "…"));
}

QTEST_GUILESS_MAIN(TestFailureAdvice)
#include "tst_failureadvice.moc"
