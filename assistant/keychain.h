#ifndef ORVANE_KEYCHAIN_H
#define ORVANE_KEYCHAIN_H

#include <QObject>

#include <functional>

/// The system's keychain, where the keys of services lie better than in a file.
class Keychain : public QObject
{
    Q_OBJECT

public:
    /// Is told the key, or why it cannot be had.
    using Fetched = std::function<void(const QString &key, const QString &error)>;
    /// Is told why it failed, or an empty text.
    using Done = std::function<void(const QString &error)>;

    explicit Keychain(QObject *parent = nullptr);
    ~Keychain() override;

    /// Returns whether this program was built with QtKeychain. Whether the system has a keychain shows when
    /// it is used. Without, nothing else may be called.
    virtual bool isBuilt() const;

    /// Reads the key that is kept as @p entry. @p fetched is called from the event loop, or never where this
    /// object dies before.
    virtual void read(const QString &entry, const Fetched &fetched);

    /// Keeps @p key as @p entry. @p done is called from the event loop, or never where this object dies
    /// before.
    virtual void write(const QString &entry, const QString &key, const Done &done);

    /// Forgets @p entry.
    virtual void remove(const QString &entry);
};

#endif
