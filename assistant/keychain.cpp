#include "keychain.h"

#ifdef ORVANE_HAS_KEYCHAIN
#    if QT_VERSION < QT_VERSION_CHECK(6, 0, 0)
#        include <qt5keychain/keychain.h>
#    else
#        include <qt6keychain/keychain.h>
#    endif
#endif

Keychain::Keychain(QObject *parent)
    : QObject(parent)
{}

Keychain::~Keychain() = default;

#ifdef ORVANE_HAS_KEYCHAIN

namespace {

template<typename Job>
Job *createJob(const QString &entry, QObject *parent)
{
    auto *job = new Job(QStringLiteral("orvane-assistant"), parent);
    job->setKey(entry);
    job->setInsecureFallback(false);
    return job;
}

QString errorOf(const QKeychain::Job *job)
{
    return job->error() == QKeychain::NoError ? QString() : job->errorString();
}

} // namespace

bool Keychain::isBuilt() const
{
    return true;
}

void Keychain::read(const QString &entry, const Fetched &fetched)
{
    auto *job = createJob<QKeychain::ReadPasswordJob>(entry, this);
    connect(job, &QKeychain::Job::finished, this, [job, fetched] { fetched(job->textData(), errorOf(job)); });
    job->start();
}

void Keychain::write(const QString &entry, const QString &key, const Done &done)
{
    auto *job = createJob<QKeychain::WritePasswordJob>(entry, this);
    job->setTextData(key);
    connect(job, &QKeychain::Job::finished, this, [job, done] { done(errorOf(job)); });
    job->start();
}

void Keychain::remove(const QString &entry)
{
    createJob<QKeychain::DeletePasswordJob>(entry, this)->start();
}

#else

bool Keychain::isBuilt() const
{
    return false;
}

void Keychain::read(const QString &, const Fetched &) {}

void Keychain::write(const QString &, const QString &, const Done &) {}

void Keychain::remove(const QString &) {}

#endif
