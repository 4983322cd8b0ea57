#ifndef QTAGENT_TESTS_STREAMTEXTS_H
#define QTAGENT_TESTS_STREAMTEXTS_H

#include <qtagent/eventstreamreader_p.h>

#include <QString>

/// Moves the next text of the events in @p reader to @p delta. Returns false where no event holds one.
inline bool takeDelta(MireloQtLib::QtAgent::EventStreamReader *reader, QString *delta)
{
    using namespace MireloQtLib::QtAgent;
    StreamEvent event;
    while (reader->takeEvent(&event)) {
        if (event.kind != StreamEvent::Kind::Object)
            continue;
        const QJsonObject choice = choiceOf(event.object, ChoiceRule::First);
        *delta = contentOf(choice.value(QLatin1String("delta")).toObject());
        if (!delta->isEmpty())
            return true;
    }
    return false;
}

#endif
