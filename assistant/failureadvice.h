#ifndef ORVANE_FAILUREADVICE_H
#define ORVANE_FAILUREADVICE_H

#include <qtagent/completionreply.h>

#include <QCoreApplication>
#include <QStyle>

/// What the user is told of a failure.
struct FailureAdvice
{
    Q_DECLARE_TR_FUNCTIONS(FailureAdvice)

public:
    /// The kinds that look different.
    enum class Kind { Offline, Slow, Key, Money, Overloaded, TooLong, Address, Cut, Other };

    Kind kind = Kind::Other;
    /// What happened, in a few words.
    QString title;
    /// What to do about it.
    QString advice;
    /// Stands before the text.
    QStyle::StandardPixmap icon = QStyle::SP_MessageBoxWarning;

    /// Returns both texts, and the first line of the report or the service's own words, as plain text.
    QString text(const MireloQtLib::QtAgent::ChatFailure &failure, const QString &error) const;
};

/// Returns what to do about @p failure.
FailureAdvice adviceFor(const MireloQtLib::QtAgent::ChatFailure &failure);

#endif
