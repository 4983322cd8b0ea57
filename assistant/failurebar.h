#ifndef ORVANE_FAILUREBAR_H
#define ORVANE_FAILUREBAR_H

#include "noticebar.h"

#include <QTimer>

namespace MireloQtLib {
namespace QtAgent {
struct ChatFailure;
}
} // namespace MireloQtLib

/// A bar that tells what failed and what to do about it; its button asks again.
class FailureBar : public NoticeBar
{
    Q_OBJECT

public:
    explicit FailureBar(QWidget *parent = nullptr);
    ~FailureBar() override;

    /// Tells of a request that failed for good with the report @p error.
    void tellFailure(const MireloQtLib::QtAgent::ChatFailure &failure, const QString &error);

    /// Tells of a request that is sent again in @p delayMs milliseconds, until then and without a button.
    void tellRetry(int attempt, qint64 delayMs, const QString &error);

private:
    QTimer m_wait;
};

#endif
