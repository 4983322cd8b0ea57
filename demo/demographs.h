#ifndef ORVANE_DEMOGRAPHS_H
#define ORVANE_DEMOGRAPHS_H

#include <qtagent/stategraph.h>

namespace MireloQtLib {
namespace QtAgent {
class AgentTool;
class ToolRegistry;
} // namespace QtAgent
} // namespace MireloQtLib

// The graphs that the workflow pages run.

MireloQtLib::QtAgent::StateGraph stateFlowGraph();
MireloQtLib::QtAgent::StateGraph multiStepGraph();
MireloQtLib::QtAgent::StateGraph routingGraph();
MireloQtLib::QtAgent::StateGraph loopGraph();
MireloQtLib::QtAgent::StateGraph memoryGraph();

/// Stops before the node review unless @p approvalGiven.
MireloQtLib::QtAgent::StateGraph reviewGraph(bool approvalGiven);

/// Calls @p tool, which must outlive every run.
MireloQtLib::QtAgent::StateGraph toolNodeGraph(MireloQtLib::QtAgent::AgentTool *tool);

/// Answers @p question with the tool "lookup_term" of @p registry, which must be registered.
MireloQtLib::QtAgent::StateGraph agentGraph(const QString &question,
                                            MireloQtLib::QtAgent::ToolRegistry *registry);

#endif
