#include "widgetpictures.h"

#include <qtagent/widgets/agentchatpanel.h>
#include <qtagent/widgets/approvaldialog.h>
#include <qtagent/widgets/graphview.h>
#include <qtagent/widgets/markdowntranscript.h>
#include <qtagent/widgets/modelconfigwidget.h>
#include <qtagent/widgets/toolcalltraceview.h>

#include <QApplication>
#include <QDir>
#include <QImage>
#include <QLineEdit>
#include <QVBoxLayout>
#include <QVector>

#include <cstdio>
#include <memory>

// The window of an example stands in no header.
#define main thinkingWindowMain
#include <examples/thinking_window.cpp> // NOLINT(bugprone-suspicious-include)
#undef main

using namespace MireloQtLib::QtAgent;

namespace {

constexpr int margin = 8;

std::unique_ptr<QWidget> createChatPanel()
{
    auto panel = std::make_unique<AgentChatPanel>();
    panel->resize(640, 520);
    panel->setContentsMargins(margin, margin, margin, margin);
    panel->appendSystemMessage(QStringLiteral("已载入冷却站的设备手册。"));
    panel->appendUserMessage(QStringLiteral("Pump-002 的温度持续升高，应该先检查什么？"));
    panel->appendAgentDelta(QStringLiteral("请依次检查：\n"
                                           "1. 冷却水阀门是否全开，流量是否低于 12 m³/h；\n"
                                           "2. 过滤器前后的压差是否超过 0.5 bar；\n"
                                           "3. 轴承是否缺油，振动是否超过 0.40。"));
    panel->finishAgentMessage();
    panel->appendUserMessage(QStringLiteral("压差是 0.8 bar。"));
    panel->appendAgentDelta(QStringLiteral("压差超限，过滤器很可能堵塞。建议切换到备用泵，然后"));
    panel->setBusy(true);
    return panel;
}

ToolCallTrace trace(const QString &toolName, const QString &status, ToolPermission permission)
{
    static const QDateTime firstCall({2026, 3, 9}, {14, 5, 9});
    ToolCallTrace trace;
    trace.toolName = toolName;
    trace.status = status;
    trace.permission = permission;
    trace.timestamp = firstCall;
    return trace;
}

std::unique_ptr<QWidget> createTraceView()
{
    ToolCallTrace query =
        trace(QStringLiteral("query_device_status"), QStringLiteral("success"), ToolPermission::ReadOnly);
    query.arguments = {{QStringLiteral("deviceId"), QStringLiteral("Pump-002")}};
    query.output = QStringLiteral("Pump-002 当前状态：预警。");
    query.durationMs = 4;

    ToolCallTrace order =
        trace(QStringLiteral("order_part"), QStringLiteral("failed"), ToolPermission::ExternalNetwork);
    order.arguments = {{QStringLiteral("part"), QStringLiteral("FLT-20")}};
    order.error = QStringLiteral("仓库没有回应。");
    order.durationMs = 812;
    order.timestamp = query.timestamp.addSecs(6);

    ToolCallTrace removal =
        trace(QStringLiteral("delete_history"), QStringLiteral("denied"), ToolPermission::Destructive);
    removal.arguments = {{QStringLiteral("deviceId"), QStringLiteral("Pump-002")}};
    removal.error = QStringLiteral("用户拒绝了审批。");
    removal.timestamp = order.timestamp.addSecs(11);

    auto view = std::make_unique<ToolCallTraceView>();
    view->resize(1120, 130);
    for (const ToolCallTrace &shown : {query, order, removal})
        view->addTrace(shown);
    return view;
}

std::unique_ptr<QWidget> createApprovalDialog()
{
    ApprovalRequest request;
    request.toolName = QStringLiteral("delete_history");
    request.permission = ToolPermission::Destructive;
    request.arguments = {
        {QStringLiteral("deviceId"), QStringLiteral("Pump-002")},
        {QStringLiteral("before"), QStringLiteral("2026-01-01")},
        {QStringLiteral("keepAlarms"), true},
    };
    request.reason = QStringLiteral("该工具拥有 Destructive 权限，需要用户确认后才能执行。");
    return std::make_unique<ApprovalDialog>(request);
}

std::unique_ptr<QWidget> createModelConfigWidget()
{
    ModelConfig service;
    service.name = QStringLiteral("公司网关");
    service.provider = QStringLiteral("openai");
    service.baseUrl = QStringLiteral("https://models.example.com/v1");
    service.apiKey = QStringLiteral("unseen key");
    service.model = QStringLiteral("plant-assistant");
    service.maxTokens = 2048;

    auto form = std::make_unique<ModelConfigWidget>();
    form->setContentsMargins(margin, margin, margin, margin);
    form->resize(420, form->sizeHint().height());
    form->setProfiles({service, ModelConfig()}, 0);
    return form;
}

QPalette darkPalette()
{
    QPalette palette(QColor(60, 60, 64), QColor(45, 45, 48));
    palette.setColor(QPalette::Base, QColor(30, 30, 32));
    palette.setColor(QPalette::AlternateBase, QColor(48, 48, 52));
    palette.setColor(QPalette::Mid, QColor(90, 90, 96));
    palette.setColor(QPalette::Link, QColor(110, 170, 255));
    return palette;
}

std::unique_ptr<QWidget> createTranscript(const QPalette &palette, const QColor &user, const QColor &agent)
{
    auto transcript = std::make_unique<MarkdownTranscript>();
    transcript->setPalette(palette);
    transcript->resize(640, 560);
    transcript->beginMessage(QStringLiteral("用户"), user, MarkdownTranscript::Format::PlainText);
    transcript->appendDelta(QStringLiteral("Pump-002 的温度持续升高，怎么检查？"));
    transcript->beginMessage(QStringLiteral("智能体"), agent);
    transcript->appendDelta(QStringLiteral("### ⚠ 检查步骤\n\n"
                                           "先看**压差**，做法见[手册](https://manual.example.com/pump)：\n\n"
                                           "1. 冷却水\n"
                                           "   - 阀门是否全开\n"
                                           "   - 流量是否低于 `12 m³/h`\n"
                                           "2. 过滤器前后的压差\n\n"
                                           "| 测点 | 实测 | 上限 | 单位 |\n"
                                           "|:-----|-----:|-----:|:----:|\n"
                                           "| 压差 | 0.8 | 0.5 | bar |\n"
                                           "| 振动 | 0.31 | 0.40 | mm/s |\n\n"
                                           "```python\n"
                                           "pump = device(\"Pump-002\")\n"
                                           "if pump.pressure_drop > 0.5:  # bar\n"
                                           "    switch_to(\"Pump-003\")\n"
                                           "```\n\n"
                                           "> 水泵运转时不要关闭阀门。\n\n"
                                           "切换到**备用泵**之后"));
    transcript->messageAt(0); // renders it
    transcript->setTextCursor(transcript->document()->find(QStringLiteral("过滤器前后")));
    return transcript;
}

std::unique_ptr<QWidget> createLightTranscript()
{
    return createTranscript(QApplication::palette(), QColor(0x1d4ed8), QColor(0x047857));
}

std::unique_ptr<QWidget> createDarkTranscript()
{
    return createTranscript(darkPalette(), QColor(0x93c5fd), QColor(0x6ee7b7));
}

// What examples/kept_window.cpp shows at its second start.
std::unique_ptr<QWidget> createKeptWindow(const QPalette &palette, const QColor &user, const QColor &agent)
{
    auto window = std::make_unique<QWidget>();
    window->setPalette(palette);
    window->resize(560, 420);
    auto *transcript = new MarkdownTranscript(window.get());
    auto *input = new QLineEdit(QStringLiteral("压差是多少？"), window.get());
    auto *layout = new QVBoxLayout(window.get());
    layout->addWidget(transcript);
    layout->addWidget(input);
    transcript->beginMessage(QStringLiteral("用户"), user, MarkdownTranscript::Format::PlainText);
    transcript->appendDelta(QStringLiteral("Which device needs a look?"));
    transcript->beginMessage(QStringLiteral("智能体"), agent);
    transcript->appendDelta(QStringLiteral("工具调用已完成，结果如下：\n"
                                           "- find_abnormal_devices: **Pump-002** ⚠\n"
                                           "  - 先看过滤器，再看泵\n\n"
                                           "| 测点 | 实测 | 上限 |\n"
                                           "|:-----|-----:|-----:|\n"
                                           "| 压差 | 0.8 | 0.5 |\n\n"
                                           "```python\n"
                                           "if pressure_drop > 0.5:\n"
                                           "    switch_to(\"Pump-003\")\n"
                                           "```\n"));
    return window;
}

std::unique_ptr<QWidget> createLightKeptWindow()
{
    return createKeptWindow(QApplication::palette(), QColor(0x1d4ed8), QColor(0x047857));
}

std::unique_ptr<QWidget> createDarkKeptWindow()
{
    return createKeptWindow(darkPalette(), QColor(0x93c5fd), QColor(0x6ee7b7));
}

// A report that was written twice and waits for its second review.
std::unique_ptr<QWidget> createGraphView()
{
    const QString draft = QStringLiteral("draft");
    const QString review = QStringLiteral("review");
    const QString send = QStringLiteral("send");
    const auto nothing = [](const QJsonObject &) { return QJsonObject(); };
    StateGraph graph;
    for (const QString &node : {draft, review, send})
        graph.addNode(node, nothing);
    graph.addEdge(StartNode, draft);
    graph.addEdge(draft, review);
    graph.addConditionalEdges(review, [](const QJsonObject &) { return QStringLiteral("again"); },
                              {{QStringLiteral("again"), draft}, {QStringLiteral("agreed"), send}});
    graph.addEdge(send, EndNode);
    graph.addInterruptBefore(review);

    GraphRunResult result;
    result.steps = {
        {draft, {}, {}, {}, {}}, {review, QStringLiteral("again"), {}, {}, {}}, {draft, {}, {}, {}, {}}};
    result.interrupted = true;
    result.interruptedNode = review;
    auto view = std::make_unique<GraphView>();
    view->resize(360, 460);
    view->setGraph(graph);
    view->showResult(result);
    return view;
}

std::unique_ptr<QWidget> createThinkingWindow()
{
    auto window = std::make_unique<ThinkingWindow>();
    window->resize(640, 400);
    Q_EMIT window->findChild<AgentChatPanel *>()->sendRequested(QStringLiteral("压差是 0.8 bar，怎么办？"));
    return window;
}

struct WidgetPicture
{
    QString name;
    std::unique_ptr<QWidget> (*create)();
};

QVector<WidgetPicture> widgetPictures()
{
    return {
        {QStringLiteral("agentchatpanel.png"), createChatPanel},
        {QStringLiteral("toolcalltraceview.png"), createTraceView},
        {QStringLiteral("approvaldialog.png"), createApprovalDialog},
        {QStringLiteral("modelconfigwidget.png"), createModelConfigWidget},
        {QStringLiteral("markdowntranscript.png"), createLightTranscript},
        {QStringLiteral("markdowntranscript-dark.png"), createDarkTranscript},
        {QStringLiteral("keptwindow.png"), createLightKeptWindow},
        {QStringLiteral("keptwindow-dark.png"), createDarkKeptWindow},
        {QStringLiteral("graphview.png"), createGraphView},
        {QStringLiteral("thinking-window.png"), createThinkingWindow},
    };
}

// A window that is never active has neither cursor nor focus frame.
QImage picture(QWidget *widget)
{
    widget->setAttribute(Qt::WA_DontShowOnScreen);
    widget->show();
    QApplication::processEvents(); // views are laid out in posted events
    return widget->grab().toImage();
}

} // namespace

QStringList widgetPictureNames()
{
    QStringList names;
    for (const WidgetPicture &entry : widgetPictures())
        names.append(entry.name);
    return names;
}

bool saveWidgetPictures(const QDir &folder)
{
    for (const WidgetPicture &entry : widgetPictures()) {
        const std::unique_ptr<QWidget> widget = entry.create();
        if (!savePicture(picture(widget.get()), folder, entry.name))
            return false;
    }
    return true;
}

bool savePicture(const QImage &picture, const QDir &folder, const QString &name)
{
    const QString path = folder.filePath(name);
    if (picture.save(path, "PNG"))
        return true;
    std::fprintf(stderr, "Cannot write %s\n", qUtf8Printable(path));
    return false;
}
