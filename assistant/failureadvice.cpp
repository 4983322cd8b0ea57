#include "failureadvice.h"

#include "beginningof.h"

#include <QNetworkReply>

using namespace MireloQtLib::QtAgent;

namespace {

using Kind = FailureAdvice::Kind;

constexpr int longestWords = 300;

// The names that services have for an empty account.
bool isEmptyAccount(const QString &name)
{
    static const QStringList names{
        QStringLiteral("insufficient_quota"),
        QStringLiteral("billing_hard_limit_reached"),
        QStringLiteral("exceeded_current_quota_error"),
        QStringLiteral("credit_balance_exhausted"),
    };
    return names.contains(name) || name.endsWith(QLatin1String("_spend_limit_exceeded"))
        || name.contains(QLatin1String("PerDay"));
}

bool isMoney(const ChatFailure &failure)
{
    constexpr int paymentRequired = 402;
    return isEmptyAccount(failure.code) || isEmptyAccount(failure.type)
        || (failure.httpStatus == paymentRequired && !failure.isTemporary());
}

bool isCut(const ChatFailure &failure)
{
    const bool isTransport =
        failure.httpStatus >= 200 && failure.httpStatus < 300 && failure.networkError != 0;
    return isTransport || failure.code == QLatin1String("stream_ended_early")
        || failure.code == QLatin1String("no_answer")
        || failure.code == QLatin1String("incomplete_tool_call");
}

bool isOffline(const ChatFailure &failure)
{
    return failure.httpStatus == 0 && failure.networkError != 0
        && failure.networkError != QNetworkReply::ProtocolUnknownError;
}

bool isSlow(const ChatFailure &failure)
{
    return failure.httpStatus == 0 && failure.networkError == QNetworkReply::TimeoutError;
}

Kind kindOf(const ChatFailure &failure)
{
    if (isMoney(failure))
        return Kind::Money;
    if (failure.code == QLatin1String("context_length_exceeded"))
        return Kind::TooLong;
    if (isCut(failure))
        return Kind::Cut;
    if (isSlow(failure))
        return Kind::Slow;
    if (isOffline(failure))
        return Kind::Offline;
    switch (failure.httpStatus) {
    case 401:
    case 403:
        return Kind::Key;
    case 404:
    case 405:
        return Kind::Address;
    case 413:
        return Kind::TooLong;
    default:
        return failure.isTemporary() ? Kind::Overloaded : Kind::Other;
    }
}

} // namespace

QString FailureAdvice::text(const ChatFailure &failure, const QString &error) const
{
    const QString words =
        failure.message.isEmpty() ? error.section(QLatin1Char('\n'), 0, 0) : failure.message.simplified();
    return title + QLatin1Char('\n') + advice + QLatin1Char('\n') + beginningOf(words, longestWords);
}

FailureAdvice adviceFor(const ChatFailure &failure)
{
    switch (kindOf(failure)) {
    case Kind::Offline:
        return {Kind::Offline, FailureAdvice::tr("无法连接到服务"),
                FailureAdvice::tr("请检查网络和服务地址，然后重试。"), QStyle::SP_DriveNetIcon};
    case Kind::Slow:
        return {Kind::Slow, FailureAdvice::tr("服务没有及时回答"),
                FailureAdvice::tr("请稍后重试，或者在“设置 → 模型”中提高时限。"), QStyle::SP_ComputerIcon};
    case Kind::Key:
        return {Kind::Key, FailureAdvice::tr("密钥无效"), FailureAdvice::tr("请在“设置 → 模型”中更正密钥。"),
                QStyle::SP_MessageBoxCritical};
    case Kind::Money:
        return {Kind::Money, FailureAdvice::tr("余额或配额不足"),
                FailureAdvice::tr("请在服务商处充值，或者换一个模型。"), QStyle::SP_DialogNoButton};
    case Kind::Overloaded:
        return {Kind::Overloaded, FailureAdvice::tr("服务繁忙"), FailureAdvice::tr("请稍等片刻再重试。"),
                QStyle::SP_MessageBoxWarning};
    case Kind::TooLong:
        return {Kind::TooLong, FailureAdvice::tr("对话对这个模型来说太长"),
                FailureAdvice::tr("请开始新对话，或者换一个模型。"), QStyle::SP_FileDialogDetailedView};
    case Kind::Address:
        return {Kind::Address, FailureAdvice::tr("服务没有这个地址或模型"),
                FailureAdvice::tr("请在“设置 → 模型”中检查地址和模型名称。"), QStyle::SP_MessageBoxQuestion};
    case Kind::Cut:
        return {Kind::Cut, FailureAdvice::tr("回答中途断开"),
                FailureAdvice::tr("可以重试，已收到的部分会被替换。"), QStyle::SP_BrowserStop};
    case Kind::Other:
        break;
    }
    return {Kind::Other, FailureAdvice::tr("请求失败"), FailureAdvice::tr("请检查设置，然后重试。"),
            QStyle::SP_MessageBoxInformation};
}
