#ifndef MIRELOQTLIB_QTAGENT_RUNPARALLEL_H
#define MIRELOQTLIB_QTAGENT_RUNPARALLEL_H

#include <qtagent/prompttemplate.h>
#include <qtagent/qtagent_export.h>

#include <QMap>
#include <QString>

#include <functional>

namespace MireloQtLib {
namespace QtAgent {

/// One branch of runParallel(): turns the variables into the branch's text.
using ParallelBranch = std::function<QString(const PromptVariables &)>;

/// Runs every branch with the same @p variables and returns the texts under the branches' names.
///
/// @code
/// const auto greeting = [](const PromptVariables &variables) { return "Hello " + variables["name"]; };
/// const auto farewell = [](const PromptVariables &variables) { return "Goodbye " + variables["name"]; };
/// const QMap<QString, QString> texts =
///     runParallel({{"greeting", greeting}, {"farewell", farewell}}, {{"name", "Ada"}});
/// // texts is {"farewell": "Goodbye Ada", "greeting": "Hello Ada"}
/// @endcode
///
/// The branches run on the calling thread, one after another in the order of their names. An empty
/// function among them is a programming error and throws std::bad_function_call; like every exception of
/// a branch it leaves the later branches out.
QTAGENT_EXPORT QMap<QString, QString> runParallel(const QMap<QString, ParallelBranch> &branches,
                                                  const PromptVariables &variables);

} // namespace QtAgent
} // namespace MireloQtLib

#endif
