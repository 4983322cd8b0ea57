#ifndef MIRELOQTLIB_QTAGENT_READAHEAD_P_H
#define MIRELOQTLIB_QTAGENT_READAHEAD_P_H

#include <QNetworkReply>

namespace MireloQtLib {
namespace QtAgent {

// Part of more than one library, therefore inline.

// Limits how many bytes Qt's network thread may read ahead of the event loop: without a limit a fast server
// fills the memory. Qt forgets one that is set before the network thread knows the request, which it does on
// the next turn of the event loop, or by the time of the head where a network has to be opened first. While
// bytes arrive the thread may not look for a new limit, so the head alone would be too late. What is read
// only at its end never gets there beyond the limit.
inline void limitReadingAhead(QNetworkReply *reply, qint64 bytes)
{
    const auto setLimit = [reply, bytes] { reply->setReadBufferSize(bytes); };
    QMetaObject::invokeMethod(reply, setLimit, Qt::QueuedConnection);
    QObject::connect(reply, &QNetworkReply::metaDataChanged, reply, setLimit);
}

} // namespace QtAgent
} // namespace MireloQtLib

#endif
