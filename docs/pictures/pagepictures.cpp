#include "pagepictures.h"

#include "widgetpictures.h"

#include <demo/orvanedemowindow.h>
#include <demo/pagetour.h>
#include <qtagent/widgets/modelconfigwidget.h>
#include <qtagent/widgets/toolcalltraceview.h>

#include <QEventLoop>
#include <QImage>
#include <QMap>
#include <QPlainTextEdit>
#include <QRegularExpression>
#include <QStackedWidget>
#include <QTemporaryDir>
#include <QTreeWidget>

#include <cstdio>

using namespace MireloQtLib::QtAgent;

namespace {

// The README shows the first two pages and the dialog.
// NOLINTNEXTLINE(readability-function-size): a table
QMap<QString, QString> picturesByTitle()
{
    return {
        {QStringLiteral("基础对话"), QStringLiteral("window.png")},
        {QStringLiteral("数据分析"), QStringLiteral("agent.png")},
        {QStringLiteral("基础聊天模型"), QStringLiteral("page-chat-model.png")},
        {QStringLiteral("提示词模板"), QStringLiteral("page-prompt-template.png")},
        {QStringLiteral("可运行链"), QStringLiteral("page-runnable-chain.png")},
        {QStringLiteral("输出解析器"), QStringLiteral("page-output-parsers.png")},
        {QStringLiteral("流式输出"), QStringLiteral("page-streaming.png")},
        {QStringLiteral("对话历史"), QStringLiteral("page-message-history.png")},
        {QStringLiteral("工具调用"), QStringLiteral("page-tool-calls.png")},
        {QStringLiteral("结构化输出"), QStringLiteral("page-structured-output.png")},
        {QStringLiteral("并行运行"), QStringLiteral("page-parallel-run.png")},
        {QStringLiteral("简单 RAG"), QStringLiteral("page-simple-rag.png")},
        {QStringLiteral("状态流程"), QStringLiteral("page-state-flow.png")},
        {QStringLiteral("多步骤流程"), QStringLiteral("page-multi-step.png")},
        {QStringLiteral("条件路由"), QStringLiteral("page-conditional-routing.png")},
        {QStringLiteral("循环直到完成"), QStringLiteral("page-loop.png")},
        {QStringLiteral("模型节点"), QStringLiteral("page-model-node.png")},
        {QStringLiteral("工具节点"), QStringLiteral("page-tool-node.png")},
        {QStringLiteral("记忆检查点"), QStringLiteral("page-memory-checkpoint.png")},
        {QStringLiteral("人工审核"), QStringLiteral("page-human-review.png")},
        {QStringLiteral("并行分支"), QStringLiteral("page-parallel-branches.png")},
        {QStringLiteral("智能体流程"), QStringLiteral("page-agent-workflow.png")},
    };
}

QString dialogPicture()
{
    return QStringLiteral("approval.png");
}

QTreeWidget *navigationOf(const OrvaneDemoWindow &window)
{
    return window.findChild<QTreeWidget *>(QStringLiteral("navigationTree"));
}

QStringList pageTitles()
{
    const OrvaneDemoWindow window;
    QStringList titles;
    for (QTreeWidgetItemIterator it(navigationOf(window), QTreeWidgetItemIterator::NoChildren); *it; ++it)
        titles.append((*it)->text(0));
    return titles;
}

void printError(const QString &error)
{
    std::fprintf(stderr, "%s\n", qUtf8Printable(error));
}

// What a trace says of its time is another in each run.
void standardizeTimes(const QWidget &window)
{
    constexpr int durationColumn = 3;
    constexpr int timeColumn = 6;
    auto *traces = window.findChild<ToolCallTraceView *>();
    for (int row = 0; row < traces->rowCount(); ++row) {
        traces->item(row, durationColumn)->setText(QStringLiteral("1 ms"));
        traces->item(row, timeColumn)->setText(QStringLiteral("14:05:09"));
    }
    static const QRegularExpression duration(QStringLiteral("Duration: \\d+ ms"));
    auto *traceTexts = window.findChild<QPlainTextEdit *>(QStringLiteral("traceOutput"));
    traceTexts->setPlainText(traceTexts->toPlainText().replace(duration, QStringLiteral("Duration: 1 ms")));
}

// The mock model calls tools for questions about devices only.
void askForTools(const QWidget &window)
{
    const auto *pages = window.findChild<QStackedWidget *>(QStringLiteral("pageStack"));
    for (int index = 0; index < pages->count(); ++index) {
        const QWidget *page = pages->widget(index);
        if (page->findChild<QPlainTextEdit *>(QStringLiteral("traceOutput"))) {
            page->findChild<QPlainTextEdit *>(QStringLiteral("pageInput"))
                ->setPlainText(QStringLiteral("哪些设备异常？请导出报告。"));
        }
    }
}

bool allToolsSucceeded(const QWidget &window)
{
    constexpr int statusColumn = 1;
    const auto *traces = window.findChild<ToolCallTraceView *>();
    for (int row = 0; row < traces->rowCount(); ++row) {
        if (traces->item(row, statusColumn)->text() != QStringLiteral("success"))
            return false;
    }
    return true;
}

QImage pictureOf(OrvaneDemoWindow *window)
{
    standardizeTimes(*window);
    return window->grab().toImage();
}

// Visits every page of a window and saves its picture. Of the tour's own pictures, which show the times of
// the run, only that of the dialog is kept.
class PictureTour
{
public:
    explicit PictureTour(const QDir &folder)
        : m_folder(folder)
    {}

    bool run();

private:
    void savePage(const QString &report);
    bool saveDialog() const;

    const QDir m_folder;
    const QTemporaryDir m_tourFolder;
    OrvaneDemoWindow m_window;
    bool m_succeeded = true;
};

bool PictureTour::run()
{
    const ModelProfiles offline = loadModelProfiles({}, QProcessEnvironment());
    m_window.findChild<ModelConfigWidget *>()->setProfiles(offline.profiles, offline.currentIndex);
    askForTools(m_window);
    m_window.show();

    QEventLoop loop;
    PageTour tour(&m_window, QDir(m_tourFolder.path()));
    QObject::connect(&tour, &PageTour::pageDone, &loop, [this](const QString &report) { savePage(report); });
    QObject::connect(&tour, &PageTour::finished, &loop, &QEventLoop::quit);
    tour.start();
    loop.exec();
    if (!allToolsSucceeded(m_window)) {
        printError(QStringLiteral("A tool of the page 数据分析 failed; can its report be written?"));
        return false;
    }
    return m_succeeded && saveDialog();
}

void PictureTour::savePage(const QString &report)
{
    const bool isOk = report.endsWith(QStringLiteral(" ok"));
    if (!isOk)
        printError(report);
    const QString title = navigationOf(m_window)->currentItem()->text(0);
    const bool isSaved = savePicture(pictureOf(&m_window), m_folder, picturesByTitle().value(title));
    m_succeeded = m_succeeded && isOk && isSaved;
}

bool PictureTour::saveDialog() const
{
    const QDir pictures(m_tourFolder.path());
    const QStringList dialogs =
        pictures.entryList({QStringLiteral("*-approval.png")}, QDir::Files, QDir::Name);
    if (dialogs.isEmpty()) {
        printError(QStringLiteral("No page has asked for an approval."));
        return false;
    }
    return savePicture(QImage(pictures.filePath(dialogs.first())), m_folder, dialogPicture());
}

} // namespace

QStringList pagePictureNames(QString *error)
{
    QMap<QString, QString> pictures = picturesByTitle();
    QStringList names{dialogPicture()};
    for (const QString &title : pageTitles()) {
        if (!pictures.contains(title)) {
            *error = QStringLiteral("The page %1 has no name for its picture.").arg(title);
            return {};
        }
        names.append(pictures.take(title));
    }
    if (pictures.isEmpty())
        return names;
    *error = QStringLiteral("There is no page %1.").arg(pictures.firstKey());
    return {};
}

bool savePagePictures(const QDir &folder)
{
    return PictureTour(folder).run();
}
