#include "conversationfiles.h"

#include <qtagent/store/conversationstore.h>

#include <QCoreApplication>
#include <QFile>
#include <QRegularExpression>
#include <QSaveFile>
#include <QTemporaryDir>

using namespace MireloQtLib::QtAgent;

namespace {

constexpr qint64 largestImport = 64 * 1024 * 1024;

bool write(const QString &path, const QByteArray &content, QString *error)
{
    QSaveFile file(path);
    const bool isWritten =
        file.open(QIODevice::WriteOnly) && file.write(content) == content.size() && file.commit();
    *error = isWritten ? QString() : file.errorString();
    return isWritten;
}

} // namespace

bool exportConversation(const ConversationStore &store, const QString &id, const QString &path,
                        QString *error)
{
    const bool isForReaders = path.endsWith(QLatin1String(".md"), Qt::CaseInsensitive);
    const QByteArray content = isForReaders ? store.toMarkdown(id, error).toUtf8() : store.toJson(id, error);
    return error->isEmpty() && write(path, content, error);
}

// Another store has the formats.
bool exportUnsaved(const Conversation &conversation, const QString &path, QString *error)
{
    const QTemporaryDir folder;
    ConversationStore store;
    if (!store.open(folder.filePath(QStringLiteral("conversation.sqlite")), error))
        return false;
    Conversation copy = store.create(conversation.title, error);
    copy.model = conversation.model;
    copy.messages = conversation.messages;
    return !copy.id.isEmpty() && store.save(&copy, error) && exportConversation(store, copy.id, path, error);
}

QString importConversation(ConversationStore *store, const QString &path, QString *error)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        *error = file.errorString();
        return {};
    }
    const QByteArray content = file.read(largestImport + 1);
    if (content.size() > largestImport) {
        *error = QCoreApplication::translate("ConversationFiles", "文件超过 64 MiB。");
        return {};
    }
    return store->importJson(content, error).id;
}

QString fileNameFor(const QString &title)
{
    QString name = title.simplified();
    name.replace(QRegularExpression(QStringLiteral("[/\\\\:*?\"<>|\\x00-\\x1f]")), QStringLiteral("_"));
    while (name.startsWith(QLatin1Char('.')))
        name.remove(0, 1);
    return name.isEmpty() ? QStringLiteral("conversation") : name;
}
