#ifndef MIRELOQTLIB_QTAGENT_VISIBLETEXT_P_H
#define MIRELOQTLIB_QTAGENT_VISIBLETEXT_P_H

#include <QJsonObject>
#include <QString>

namespace MireloQtLib {
namespace QtAgent {

/// Returns @p text on one line, with each character that nobody can see, or that looks like a blank
/// without being one, as its JSON escape: "\u202e", and "\udb40\udc41" outside the basic plane.
QString visibleText(const QString &text);

/// Returns @p object as indented JSON, with the same characters as escapes, or as compact JSON and a line
/// break where that would be more than 20,000 lines or 1,000,000 blanks. A line of more than 1,000 characters
/// goes on in lines that begin with "↪ ", a mark that no value can contain.
QString visibleJson(const QJsonObject &object);

} // namespace QtAgent
} // namespace MireloQtLib

#endif
