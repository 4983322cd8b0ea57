#include "failurebar.h"

#include "failureadvice.h"

#include <QLocale>

#include <limits>

FailureBar::FailureBar(QWidget *parent)
    : NoticeBar(parent)
{
    m_wait.setSingleShot(true);
    connect(&m_wait, &QTimer::timeout, this, &NoticeBar::clear);
}

FailureBar::~FailureBar() = default;

void FailureBar::tellFailure(const MireloQtLib::QtAgent::ChatFailure &failure, const QString &error)
{
    m_wait.stop();
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
    m_wait.start(int(qMin<qint64>(delayMs, std::numeric_limits<int>::max())));
}
