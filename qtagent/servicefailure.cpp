#include "servicefailure_p.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLocale>

#include <cmath>

namespace MireloQtLib {
namespace QtAgent {

namespace {

constexpr double longestWaitMs = 1e12;

// NaN fails every comparison.
qint64 wait(double milliseconds)
{
    return milliseconds >= 0 && milliseconds <= longestWaitMs ? qint64(std::llround(milliseconds)) : -1;
}

QString compactText(const QJsonValue &value)
{
    if (value.isObject())
        return QString::fromUtf8(QJsonDocument(value.toObject()).toJson(QJsonDocument::Compact));
    if (value.isArray())
        return QString::fromUtf8(QJsonDocument(value.toArray()).toJson(QJsonDocument::Compact));
    return value.toString();
}

QString codeOf(const QJsonValue &code)
{
    if (!code.isDouble())
        return code.toString();
    const double number = code.toDouble();
    const bool isInteger = std::abs(number) < 1e15 && number == std::trunc(number);
    return isInteger ? QString::number(qint64(number)) : QString::number(number);
}

QString messageOf(const QJsonObject &error)
{
    const QJsonValue message = error.value(QLatin1String("message"));
    return compactText(message.isObject() ? message.toObject().value(QLatin1String("detail")) : message);
}

qint64 retryDelay(const QJsonObject &detail)
{
    QString text = detail.value(QLatin1String("retryDelay")).toString();
    if (!text.endsWith(QLatin1Char('s')))
        return -1;
    text.chop(1);
    bool isNumber = false;
    const double seconds = text.toDouble(&isNumber);
    return isNumber ? wait(seconds * 1000) : -1;
}

// A quota for the day that is used up: its name says so, the code only that there were too many requests.
QString dailyQuota(const QJsonObject &detail)
{
    const QJsonArray violations = detail.value(QLatin1String("violations")).toArray();
    for (const QJsonValue &violation : violations) {
        QString quota = violation.toObject().value(QLatin1String("quotaId")).toString();
        if (quota.contains(QLatin1String("PerDay")))
            return quota;
    }
    return {};
}

void readDetails(const QJsonArray &details, ChatFailure *failure)
{
    for (const QJsonValue &value : details) {
        const QJsonObject detail = value.toObject();
        const QString type = detail.value(QLatin1String("@type")).toString();
        if (type.endsWith(QLatin1String("RetryInfo")))
            failure->retryAfterMs = retryDelay(detail);
        else if (type.endsWith(QLatin1String("QuotaFailure")) && !dailyQuota(detail).isEmpty())
            failure->code = dailyQuota(detail);
    }
}

void readTypeAndCode(const QJsonObject &object, ChatFailure *failure)
{
    failure->type = object.value(QLatin1String("type")).toString();
    failure->code = codeOf(object.value(QLatin1String("code")));
}

ChatFailure failureInObject(const QJsonObject &object)
{
    ChatFailure failure;
    const QJsonValue error = object.value(QLatin1String("error"));
    if (error.isObject()) {
        const QJsonObject errorObject = error.toObject();
        readTypeAndCode(errorObject, &failure);
        failure.message = messageOf(errorObject);
        readDetails(errorObject.value(QLatin1String("details")).toArray(), &failure);
    } else {
        readTypeAndCode(object, &failure);
    }
    if (failure.message.isEmpty())
        failure.message = messageOf(object);
    if (failure.message.isEmpty())
        failure.message = error.toString();
    if (failure.message.isEmpty())
        failure.message = compactText(object.value(QLatin1String("detail")));
    return failure;
}

qint64 waitInHeaders(const QNetworkReply &networkReply)
{
    const qint64 milliseconds = waitInMilliseconds(networkReply.rawHeader("retry-after-ms"));
    if (milliseconds >= 0)
        return milliseconds;
    return waitInSeconds(networkReply.rawHeader("Retry-After"), QDateTime::currentDateTimeUtc());
}

// Date and time apart: together they would be taken for local ones, of which some do not exist.
QDateTime dateFrom(const QString &text)
{
    const QString dayFormat = QStringLiteral("ddd, dd MMM yyyy");
    const QDate day = QLocale::c().toDate(text.left(dayFormat.size()), dayFormat);
    const QTime time = QTime::fromString(text.mid(dayFormat.size()), QStringLiteral("' 'hh:mm:ss' GMT'"));
    return day.isValid() && time.isValid() ? QDateTime(day, time, Qt::UTC) : QDateTime();
}

qint32 retryAdvice(const QByteArray &header)
{
    const QByteArray word = header.trimmed().toLower();
    if (word == "true")
        return 1;
    return word == "false" ? 0 : -1;
}

} // namespace

ChatFailure failureInBody(const QByteArray &body)
{
    const QJsonDocument document = QJsonDocument::fromJson(body);
    return failureInObject(document.isArray() ? document.array().at(0).toObject() : document.object());
}

ChatFailure failureOf(const QNetworkReply &networkReply, const RequestOutcome &outcome,
                      const QByteArray &body)
{
    ChatFailure failure = failureInBody(body);
    failure.httpStatus = qMax(0, outcome.httpStatus);
    failure.networkError = int(outcome.error);
    const qint64 wait = waitInHeaders(networkReply);
    if (wait >= 0)
        failure.retryAfterMs = wait;
    failure.shouldRetry = retryAdvice(networkReply.rawHeader("x-should-retry"));
    return failure;
}

qint64 waitInMilliseconds(const QByteArray &header)
{
    bool isNumber = false;
    const double milliseconds = header.trimmed().toDouble(&isNumber);
    return isNumber ? wait(milliseconds) : -1;
}

qint64 waitInSeconds(const QByteArray &header, const QDateTime &now)
{
    bool isNumber = false;
    const double seconds = header.trimmed().toDouble(&isNumber);
    if (isNumber)
        return wait(seconds * 1000);
    const QDateTime date = dateFrom(QString::fromLatin1(header.trimmed()));
    return date.isValid() ? wait(double(qMax<qint64>(0, now.msecsTo(date)))) : -1;
}

} // namespace QtAgent
} // namespace MireloQtLib
