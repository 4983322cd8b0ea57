#ifndef QTAGENT_TESTS_STOREDFIXTURE_H
#define QTAGENT_TESTS_STOREDFIXTURE_H

#include "graphfixture.h"
#include "memorycheckpoints.h"

/// A run with a storage, both writing into one log.
struct StoredFixture : public GraphFixture
{
    explicit StoredFixture(const MireloQtLib::QtAgent::StateGraph &graph = twoNodes())
        : GraphFixture(graph)
    {
        run->setOwner("me");
        run->setCheckpoints(&storage);
        storage.onCall = [this](const QString &line) { log.append(line); };
    }
    ~StoredFixture() { delete run; }

    /// What is stored of the thread "t": its next node, attempt and state.
    QString stored() const { return MemoryCheckpoints::textOf(storage.checkpoints.value("t")); }

    MemoryCheckpoints storage;
};

#endif
