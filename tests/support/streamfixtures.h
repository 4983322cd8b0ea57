#ifndef MIRELOQTLIB_QTAGENT_TESTS_STREAMFIXTURES_H
#define MIRELOQTLIB_QTAGENT_TESTS_STREAMFIXTURES_H

#include <qtagent/completionreply.h>

#include <QByteArray>
#include <QJsonArray>
#include <QString>
#include <QVector>

/// A stream in a shape that some service sends, and what it has to be read as. The tools "add", "now" and
/// "add_numbers" are offered.
struct StreamFixture
{
    const char *name;
    /// Without the empty line after each event.
    QByteArray lines;
    /// Compact JSON: of each call its id, its name and its arguments.
    QByteArray calls;
    QString text = {};
    /// The first line of the report, empty where the stream finishes.
    QString fault = {};
    /// What the service says about the failure.
    QString message = {};
    MireloQtLib::QtAgent::TokenUsage usage = {};
    /// Where parts of a content are read.
    QString reasoning = {};
    bool hasEndMark = true;

    /// Returns the stream, with an empty line after each event.
    QByteArray bytes(const QByteArray &lineEnd = "\n") const;
};

/// Returns what StreamFixture::calls says about @p calls.
QByteArray summaryOf(const QJsonArray &calls);

/// Returns one stream of every shape.
QVector<StreamFixture> streamFixtures();

#endif
