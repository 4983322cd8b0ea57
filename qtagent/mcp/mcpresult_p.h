#ifndef MIRELOQTLIB_QTAGENT_MCPRESULT_P_H
#define MIRELOQTLIB_QTAGENT_MCPRESULT_P_H

#include "mcptransport_p.h"

#include <qtagent/agenttool.h>

namespace MireloQtLib {
namespace QtAgent {

// Returns @p answer, or an error where a modern server has not completed its result.
McpAnswer checkedAnswer(const McpAnswer &answer, bool isModern);

// Returns what the answer to a tools/call means for the model.
ToolResult toolResultFrom(const McpAnswer &answer);

} // namespace QtAgent
} // namespace MireloQtLib

#endif
