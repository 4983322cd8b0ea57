#ifndef MIRELOQTLIB_QTAGENT_SIMPLERAGCHAIN_H
#define MIRELOQTLIB_QTAGENT_SIMPLERAGCHAIN_H

#include <qtagent/chatmodel.h>

#include <QList>
#include <QPointer>
#include <QStringList>

namespace MireloQtLib {
namespace QtAgent {

/// A document that SimpleRagChain found.
struct QTAGENT_EXPORT ScoredDocument
{
    Q_GADGET

public:
    /// The document as it was given.
    QString text;
    /// How many of the question's terms occur in it.
    qint32 score = 0;

    /// Returns whether all fields are equal.
    friend QTAGENT_EXPORT bool operator==(const ScoredDocument &left, const ScoredDocument &right);
    /// Returns whether a field differs.
    friend bool operator!=(const ScoredDocument &left, const ScoredDocument &right)
    {
        return !(left == right);
    }
};

/// Answers questions from a list of documents: it finds the documents that share the most words with the
/// question and asks a model to answer from these alone.
///
/// @code
/// auto *chain = new SimpleRagChain(this);
/// chain->setDocuments(paragraphs);
/// chain->setModel(model);
/// ChatReply *reply = chain->invoke(question, 3, this);
/// reply->whenEnded(this, [this](const ChatResult &result) { showEnd(result); });
/// @endcode
///
/// The terms of a question are its runs of the characters a-z, 0-9 and underscore after lower-casing, each
/// counted once. Everything else separates terms, so a question in Chinese alone has none. A document's
/// score is the number of terms that occur in it, in any letter case and also within longer words.
///
/// Nothing but the documents is kept between questions; each one reads all of them once. A chain belongs to
/// the thread of its model, and searches there.
class QTAGENT_EXPORT SimpleRagChain : public QObject
{
    Q_OBJECT

public:
    /// Creates a chain without documents and without a model.
    explicit SimpleRagChain(QObject *parent = nullptr);
    ~SimpleRagChain() override;

    /// Replaces all documents. Their texts are shared, not copied.
    void setDocuments(const QStringList &documents);

    /// Sets the model to ask. The chain does not own it; a model that was deleted counts as none.
    void setModel(ChatModel *model);

    /// Returns the @p topK documents with the highest scores, best first; equal scores keep the order of
    /// the documents. Documents that share no term with @p question fill up the list. It is empty for a
    /// @p topK of 0 or less, and holds all documents where there are fewer. No model is asked.
    QList<ScoredDocument> retrieve(const QString &question, int topK) const;

    /// Retrieves @p topK documents, asks the model to answer @p question from them, without tools, and
    /// returns its reply. The reply is owned by @p parent, or by the chain where that is null.
    ///
    /// The model is asked even where nothing was retrieved; it is told to say so if the context does not
    /// suffice. Signals follow as ChatReply describes, never before this call returns. Without a model the
    /// reply fails with "SimpleRagChain has no model." on the next turn of the event loop.
    ChatReply *invoke(const QString &question, int topK, QObject *parent = nullptr);

    /// Returns what the last invoke() that reached a model gave it to answer from: one line "- %1" for
    /// each retrieved document, best first, without a line feed at the end. Empty before that.
    QString lastContext() const;

private:
    QStringList m_documents;
    QPointer<ChatModel> m_model;
    QString m_lastContext;
};

} // namespace QtAgent
} // namespace MireloQtLib

#endif
