#include "librarytexts.h"

#include <QCoreApplication>

namespace {

constexpr const char *context = "LibraryTexts";

constexpr const char *wholeTexts[] = {
    QT_TRANSLATE_NOOP("LibraryTexts", "未执行。"),
    QT_TRANSLATE_NOOP("LibraryTexts", "已取消。"),
    QT_TRANSLATE_NOOP("LibraryTexts", "用户拒绝了审批。"),
    QT_TRANSLATE_NOOP("LibraryTexts", "工具执行完成。"),
    QT_TRANSLATE_NOOP("LibraryTexts", "工具执行失败。"),
    QT_TRANSLATE_NOOP("LibraryTexts", "工具注册表尚未配置。"),
    QT_TRANSLATE_NOOP("LibraryTexts", "智能体模型尚未配置。"),
    QT_TRANSLATE_NOOP("LibraryTexts", "DeepSeek 环境变量"),
    QT_TRANSLATE_NOOP("LibraryTexts", "OpenAI 环境变量"),
    QT_TRANSLATE_NOOP("LibraryTexts", "模拟模型"),
};

// A name follows behind it.
constexpr const char *missingTool = QT_TRANSLATE_NOOP("LibraryTexts", "未找到工具：");

QString translated(const char *text)
{
    return QCoreApplication::translate(context, text);
}

} // namespace

QString shownText(const QString &text)
{
    for (const char *whole : wholeTexts) {
        if (text == QString::fromUtf8(whole))
            return translated(whole);
    }
    const QString beginning = QString::fromUtf8(missingTool);
    return text.startsWith(beginning) ? translated(missingTool) + text.mid(beginning.size()) : text;
}
