#include "failurebar.h"

#include "failureadvice.h"

#include <QLocale>

FailureBar::FailureBar(QWidget *parent)
    : NoticeBar(parent)
{}

FailureBar::~FailureBar() = default;

void FailureBar::tellFailure(const MireloQtLib::QtAgent::ChatFailure &failure, const QString &error)
{
    const FailureAdvice advice = adviceFor(failure);
    setIcon(advice.icon);
    tell(advice.text(failure, error), tr("重试(&R)"));
}

void FailureBar::tellRetry(int attempt, qint64 delayMs, const QString &error)
{
    const QString seconds = QLocale().toString(double(delayMs) / 1000, 'f', 1);
    setIcon(QStyle::SP_BrowserReload);
    tell(tr("第 %1 次尝试将在 %2 秒后开始。\n%3")
             .arg(QString::number(attempt), seconds, error.section(QLatin1Char('\n'), 0, 0)));
}
