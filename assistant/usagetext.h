#ifndef ORVANE_USAGETEXT_H
#define ORVANE_USAGETEXT_H

#include <QString>

namespace MireloQtLib {
namespace QtAgent {
struct Conversation;
}
} // namespace MireloQtLib

/// Returns how many tokens the last answer of @p conversation had and how many all requests and answers took
/// together, for the user; empty where no service told.
QString usageText(const MireloQtLib::QtAgent::Conversation &conversation);

#endif
