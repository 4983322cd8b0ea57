#include "simpleragchain.h"

#include "termmatcher_p.h"

#include <algorithm>
#include <vector>

namespace MireloQtLib {
namespace QtAgent {

namespace {

struct Ranking
{
    int score;
    int document;
};

bool ranksBefore(const Ranking &left, const Ranking &right)
{
    return left.score != right.score ? left.score > right.score : left.document < right.document;
}

std::vector<Ranking> rankingsOf(const QStringList &documents, const QString &question)
{
    TermMatcher matcher(question);
    std::vector<Ranking> rankings;
    rankings.reserve(static_cast<size_t>(documents.size()));
    for (const QString &document : documents)
        rankings.push_back({matcher.countTermsIn(document), static_cast<int>(rankings.size())});
    return rankings;
}

QString contextOf(const QList<ScoredDocument> &documents)
{
    QStringList lines;
    for (const ScoredDocument &document : documents)
        lines.append(QStringLiteral("- %1").arg(document.text));
    return lines.join(QLatin1Char('\n'));
}

QVector<ChatMessage> conversationOf(const QString &context, const QString &question)
{
    return {
        ChatMessage::system(QStringLiteral("Answer only from the supplied context. "
                                           "If the context is insufficient, say so briefly.")),
        ChatMessage::user(QStringLiteral("Context:\n%1\n\nQuestion: %2").arg(context, question)),
    };
}

} // namespace

bool operator==(const ScoredDocument &left, const ScoredDocument &right)
{
    return left.text == right.text && left.score == right.score;
}

SimpleRagChain::SimpleRagChain(QObject *parent)
    : QObject(parent)
{}

SimpleRagChain::~SimpleRagChain() = default;

void SimpleRagChain::setDocuments(const QStringList &documents)
{
    m_documents = documents;
}

void SimpleRagChain::setModel(ChatModel *model)
{
    m_model = model;
}

QList<ScoredDocument> SimpleRagChain::retrieve(const QString &question, int topK) const
{
    std::vector<Ranking> rankings = rankingsOf(m_documents, question);
    const auto best = rankings.begin() + qBound(0, topK, static_cast<int>(rankings.size()));
    std::partial_sort(rankings.begin(), best, rankings.end(), ranksBefore);

    QList<ScoredDocument> documents;
    for (auto ranking = rankings.begin(); ranking != best; ++ranking)
        documents.append({m_documents.at(ranking->document), ranking->score});
    return documents;
}

ChatReply *SimpleRagChain::invoke(const QString &question, int topK, QObject *parent)
{
    QObject *replyParent = parent ? parent : this;
    if (!m_model)
        return ChatReply::failLater(QStringLiteral("SimpleRagChain has no model."), replyParent);
    m_lastContext = contextOf(retrieve(question, topK));
    return m_model->chat(conversationOf(m_lastContext, question), {}, replyParent);
}

QString SimpleRagChain::lastContext() const
{
    return m_lastContext;
}

} // namespace QtAgent
} // namespace MireloQtLib
