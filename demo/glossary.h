#ifndef ORVANE_GLOSSARY_H
#define ORVANE_GLOSSARY_H

#include <qtagent/agenttool.h>

namespace MireloQtLib {
namespace QtAgent {
class ToolRegistry;
} // namespace QtAgent
} // namespace MireloQtLib

// The small glossary that several pages offer to a model as the tool "lookup_term".

/// Returns the name of the tool.
QString glossaryToolName();

/// Returns a new tool, described for a model that has other tools to choose from.
MireloQtLib::QtAgent::FunctionTool *createGlossaryTool();

/// Returns a new tool with the short description of the workflow pages.
MireloQtLib::QtAgent::FunctionTool *createWorkflowGlossaryTool();

/// Hands @p tool, which has no parent, to @p registry. Where there is none, or a tool of the same name lives
/// there already, @p tool is deleted.
void registerOrDelete(MireloQtLib::QtAgent::ToolRegistry *registry, MireloQtLib::QtAgent::FunctionTool *tool);

#endif
