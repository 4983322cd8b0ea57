#ifndef MIRELOQTLIB_QTAGENT_OUTPUTPARSERS_H
#define MIRELOQTLIB_QTAGENT_OUTPUTPARSERS_H

#include <qtagent/qtagent_export.h>

#include <QJsonObject>
#include <QString>
#include <QStringList>

namespace MireloQtLib {
namespace QtAgent {

/// Turns a model's answer into a tidy text.
///
/// @code
/// const QString answer = StringOutputParser().parse(reply->text());
/// @endcode
class QTAGENT_EXPORT StringOutputParser
{
public:
    /// Returns @p text without leading and trailing white space.
    QString parse(const QString &text) const;
};

/// Turns a model's answer into a JSON object, also where the model wrapped it in a Markdown code fence.
///
/// @code
/// const JsonOutputParser parser({QStringLiteral("title"), QStringLiteral("summary")});
/// QString error;
/// const QJsonObject object = parser.parse(reply->text(), &error);
/// if (!error.isEmpty())
///     showError(error);
/// @endcode
///
/// An object may well be empty: success is told by the error text.
class QTAGENT_EXPORT JsonOutputParser
{
public:
    /// Creates a parser whose parse() demands @p requiredFields.
    explicit JsonOutputParser(const QStringList &requiredFields = {});

    /// Sets the keys that parse() demands.
    void setRequiredFields(const QStringList &fields);

    /// Returns the keys that parse() demands; none by default.
    QStringList requiredFields() const;

    /// Returns the object in @p text, or an empty object on failure.
    ///
    /// White space around it is dropped, and so are the lines of a code fence (three backticks, with a
    /// language tag or without) where the text begins with one: what counts then is the text between the
    /// first line feed and the last fence. A fence without a line feed, or one that is never closed, stays
    /// and fails.
    ///
    /// @p errorOut, where given, becomes empty on success, "JSON root is not an object." where the text is
    /// JSON of another kind, and otherwise the error text of QJsonParseError.
    static QJsonObject parseObject(const QString &text, QString *errorOut = nullptr);

    /// Returns the same as parseObject() where the object has all required fields. Where one is missing
    /// the result is an empty object and the error "Missing required field: %1" with the first missing one.
    ///
    /// A field whose value is null or empty, or has another type than expected, is not missing.
    QJsonObject parse(const QString &text, QString *errorOut = nullptr) const;

private:
    QStringList m_requiredFields;
};

} // namespace QtAgent
} // namespace MireloQtLib

#endif
