#ifndef MIRELOQTLIB_QTAGENT_MODELLISTRECEIVER_P_H
#define MIRELOQTLIB_QTAGENT_MODELLISTRECEIVER_P_H

#include "silencetimer_p.h"

#include <qtagent/modellist.h>

#include <QPointer>

namespace MireloQtLib {
namespace QtAgent {

// Turns what a network reply receives into the signals of a ModelListReply. It is a child of the network
// reply.
class ModelListReceiver : public QObject
{
public:
    ModelListReceiver(QNetworkReply *networkReply, ModelListReply *reply);

    // Fails the request where no byte goes either way for @p milliseconds, 0 or less for no limit.
    void limitSilence(int milliseconds);

    // Ends the request without a signal.
    void abandon();

private:
    void endSilence(int milliseconds);
    void end();

    QNetworkReply *const m_networkReply;
    QPointer<ModelListReply> m_reply;
};

} // namespace QtAgent
} // namespace MireloQtLib

#endif
