#include "runparallel.h"

namespace MireloQtLib {
namespace QtAgent {

QMap<QString, QString> runParallel(const QMap<QString, ParallelBranch> &branches,
                                   const PromptVariables &variables)
{
    // A branch may change the maps that the caller passed.
    const QMap<QString, ParallelBranch> allBranches = branches; // NOLINT(performance-unnecessary-copy-*)
    const PromptVariables sameVariables = variables;            // NOLINT(performance-unnecessary-copy-*)
    QMap<QString, QString> texts;
    for (auto branch = allBranches.cbegin(); branch != allBranches.cend(); ++branch)
        texts.insert(branch.key(), branch.value()(sameVariables));
    return texts;
}

} // namespace QtAgent
} // namespace MireloQtLib
