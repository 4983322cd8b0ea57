// Runs a fuzz target over mutated seeds: the same inputs at every run, so that a failure is repeatable.

#include "fuzztarget.h"

#include <QDir>
#include <QFile>
#include <QVector>

#include <cstdio>
#include <random>

namespace {

constexpr int usualCount = 20000;
constexpr int largestInput = 8192;
constexpr unsigned seed = 20240611;

class Mutator
{
public:
    explicit Mutator(const QVector<QByteArray> &corpus)
        : m_corpus(corpus)
    {}

    QByteArray next()
    {
        QByteArray bytes = m_corpus.at(below(int(m_corpus.size())));
        for (int i = 1 + below(6); i > 0; --i)
            mutate(&bytes);
        return bytes.left(largestInput);
    }

private:
    int below(int bound) { return bound > 0 ? int(m_random() % unsigned(bound)) : 0; }

    void mutate(QByteArray *bytes)
    {
        const int position = below(int(bytes->size()) + 1);
        switch (below(7)) {
        case 0:
            if (position < bytes->size())
                (*bytes)[position] = char(bytes->at(position) ^ (1 << below(8)));
            break;
        case 1:
            bytes->insert(position, char(below(256)));
            break;
        case 2:
            bytes->insert(position, token());
            break;
        case 3:
            bytes->remove(position, 1 + below(16));
            break;
        case 4:
            bytes->insert(position, bytes->mid(below(int(bytes->size())), 1 + below(64)));
            break;
        case 5:
            bytes->truncate(position);
            break;
        default:
            splice(bytes, position);
        }
    }

    void splice(QByteArray *bytes, int position)
    {
        const QByteArray &other = m_corpus.at(below(int(m_corpus.size())));
        *bytes = bytes->left(position) + other.mid(below(int(other.size())));
    }

    QByteArray token()
    {
        static const QVector<QByteArray> tokens{
            "data:", "data: ", "[DONE]", "\n",    "\r\n",    "\n\n",     ":",    "{",
            "}",     "[",      "]",      "\"",    "\\u",     "\\ud83d",  ",",    "null",
            "true",  "```",    "```\n",  "error", "{a}",     "message",  "\xe4", "\xef\xbb\xbf",
            "%1",    "%2",     "1e309",  "-0",    "choices", "profiles", "{b}",  "\"\"",
            "- ",    "1. ",    "> ",     "**",    "_",       "|",        "---",  "# ",
            "    ",  "[a]",    "]: b",   "![](",  "\\",
        };
        return tokens.at(below(int(tokens.size())));
    }

    const QVector<QByteArray> m_corpus;
    std::mt19937 m_random{seed};
};

QVector<QByteArray> readCorpus(const QString &folder)
{
    QVector<QByteArray> corpus;
    const QDir dir(folder);
    for (const QString &name : dir.entryList(QDir::Files, QDir::Name)) {
        QFile file(dir.filePath(name));
        if (!file.open(QIODevice::ReadOnly))
            qFatal("cannot read %s", qPrintable(file.fileName()));
        corpus.append(file.readAll());
    }
    return corpus;
}

QByteArray currentInput;

void printInputOfFailure(QtMsgType type, const QMessageLogContext &, const QString &message)
{
    std::fprintf(stderr, "%s\n", qPrintable(message));
    if (type == QtFatalMsg)
        std::fprintf(stderr, "input, in base64: %s\n", currentInput.toBase64().constData());
}

void runTarget(const QByteArray &input)
{
    currentInput = input;
    LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t *>(input.constData()), size_t(input.size()));
}

} // namespace

int main(int argc, char **argv)
{
    const int inputCount = argc == 3 ? QByteArray(argv[2]).toInt() : usualCount;
    if (argc < 2 || argc > 3 || inputCount <= 0) {
        std::fprintf(stderr, "usage: %s CORPUS-FOLDER [INPUTS]\n", argv[0]);
        return 2;
    }
    const QVector<QByteArray> corpus = readCorpus(QString::fromLocal8Bit(argv[1]));
    if (corpus.isEmpty()) {
        std::fprintf(stderr, "no seeds in %s\n", argv[1]);
        return 2;
    }
    qInstallMessageHandler(printInputOfFailure);
    for (const QByteArray &input : corpus)
        runTarget(input);
    Mutator mutator(corpus);
    for (int i = 0; i < inputCount; ++i)
        runTarget(mutator.next());
    std::printf("%d seeds and %d mutated inputs hold\n", int(corpus.size()), inputCount);
    return 0;
}
