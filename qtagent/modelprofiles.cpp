#include "modelprofiles.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>

#ifdef Q_OS_UNIX
#    include <fcntl.h>
#endif

namespace MireloQtLib {
namespace QtAgent {

namespace {

// In bytes. A file with profiles is far smaller.
constexpr qint64 largestFileSize = 1024 * 1024;

// The path may lead to a FIFO by now, for whose writer nobody should wait.
bool openWithoutWaiting(QFile *file, const QFileInfo &info)
{
#ifdef Q_OS_UNIX
    if (info.isNativePath()) {
        const QByteArray path = QFile::encodeName(info.filePath());
        const int handle = ::open(path.constData(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
        return handle >= 0 && file->open(handle, QIODevice::ReadOnly, QFile::AutoCloseHandle);
    }
#endif
    file->setFileName(info.filePath());
    return file->open(QIODevice::ReadOnly);
}

// Returns nothing for what is no regular file or is too large.
QByteArray fileContent(const QString &path)
{
    QFile file;
    const QFileInfo info(path);
    if (!info.isFile() || !openWithoutWaiting(&file, info) || file.isSequential())
        return {};
    // Some files do not tell their size, and others grow.
    const QByteArray content = file.size() > largestFileSize ? QByteArray() : file.read(largestFileSize + 1);
    return content.size() > largestFileSize ? QByteArray() : content;
}

bool readJsonObject(const QString &path, QJsonObject *object)
{
    const QJsonDocument document = QJsonDocument::fromJson(fileContent(path));
    if (!document.isObject())
        return false;
    *object = document.object();
    return true;
}

ModelProfiles profilesFromJson(const QJsonObject &root)
{
    ModelProfiles result;
    const QJsonArray entries = root.value(QStringLiteral("profiles")).toArray();
    if (entries.isEmpty()) {
        result.profiles.append(modelConfigFromJson(root));
        return result;
    }
    for (const QJsonValue &entry : entries) {
        if (entry.isObject())
            result.profiles.append(modelConfigFromJson(entry.toObject()));
    }
    const int lastIndex = qMax(0, int(result.profiles.size()) - 1);
    result.currentIndex = qBound(0, root.value(QStringLiteral("currentProfile")).toInt(), lastIndex);
    return result;
}

ModelProfiles profilesFromFirstReadable(const QStringList &candidates)
{
    for (const QString &path : candidates) {
        QJsonObject root;
        if (readJsonObject(path, &root))
            return profilesFromJson(root);
    }
    return {};
}

ModelConfig profileFromVariables(const QProcessEnvironment &environment, const QString &prefix)
{
    ModelConfig config;
    config.apiKey = environment.value(prefix + QLatin1String("_API_KEY"));
    config.baseUrl = environment.value(prefix + QLatin1String("_BASE_URL"));
    config.model = environment.value(prefix + QLatin1String("_MODEL"));
    return config;
}

ModelConfig profileFromEnvironment(const QProcessEnvironment &environment)
{
    ModelConfig deepSeek = profileFromVariables(environment, QStringLiteral("DEEPSEEK"));
    if (!deepSeek.apiKey.isEmpty()) {
        deepSeek.name = QStringLiteral("DeepSeek 环境变量");
        deepSeek.provider = QStringLiteral("deepseek");
        return deepSeek;
    }
    ModelConfig openAi = profileFromVariables(environment, QStringLiteral("OPENAI"));
    const bool hasKey = !openAi.apiKey.isEmpty();
    openAi.name = hasKey ? QStringLiteral("OpenAI 环境变量") : QStringLiteral("模拟模型");
    openAi.provider = hasKey ? QStringLiteral("openai") : QStringLiteral("mock");
    return openAi;
}

void fillDefaults(ModelConfig *config)
{
    if (config->baseUrl.isEmpty())
        config->baseUrl = defaultBaseUrl(config->provider);
    if (config->model.isEmpty())
        config->model = defaultModelName(config->provider);
}

} // namespace

bool operator==(const ModelProfiles &left, const ModelProfiles &right)
{
    return left.profiles == right.profiles && left.currentIndex == right.currentIndex;
}

ModelConfig modelConfigFromJson(const QJsonObject &json)
{
    ModelConfig config;
    config.name = json.value(QStringLiteral("name")).toString();
    config.provider = json.value(QStringLiteral("provider")).toString(QStringLiteral("openai"));
    config.apiKey = json.value(QStringLiteral("apiKey")).toString();
    config.baseUrl = json.value(QStringLiteral("baseUrl")).toString();
    config.model = json.value(QStringLiteral("model")).toString();
    config.maxTokens = json.value(QStringLiteral("maxTokens")).toInt(config.maxTokens);
    config.timeoutMs = json.value(QStringLiteral("timeoutMs")).toInt(config.timeoutMs);
    config.stream = json.value(QStringLiteral("stream")).toBool(config.stream);
    if (config.provider.isEmpty())
        config.provider = config.apiKey.isEmpty() ? QStringLiteral("mock") : QStringLiteral("openai");
    return config;
}

QStringList modelConfigFileCandidates()
{
    const QString fileName = QStringLiteral("orvane.local.json");
    const QDir application(QCoreApplication::applicationDirPath());
    return {
        QDir::cleanPath(QDir::current().absoluteFilePath(fileName)),
        QDir::cleanPath(application.absoluteFilePath(fileName)),
        QDir::cleanPath(application.absoluteFilePath(QLatin1String("../../../MireloOrvane/") + fileName)),
        QDir::cleanPath(application.absoluteFilePath(QLatin1String("../../../../MireloOrvane/") + fileName)),
    };
}

ModelProfiles loadModelProfiles(const QStringList &candidates, const QProcessEnvironment &environment)
{
    ModelProfiles result = profilesFromFirstReadable(candidates);
    if (result.profiles.isEmpty())
        result.profiles.append(profileFromEnvironment(environment));
    for (ModelConfig &config : result.profiles)
        fillDefaults(&config);
    return result;
}

ModelProfiles loadModelProfiles()
{
    return loadModelProfiles(modelConfigFileCandidates(), QProcessEnvironment::systemEnvironment());
}

} // namespace QtAgent
} // namespace MireloQtLib
