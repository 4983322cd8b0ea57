#include <demo/devicetools.h>

#include <qtagent/toolregistry.h>

#include <QTemporaryDir>
#include <QtTest>

#if QT_VERSION < QT_VERSION_CHECK(6, 0, 0)
#    include <QTextCodec>
#endif

using namespace MireloQtLib::QtAgent;

namespace {

QJsonObject listEntry(const QString &id, const QString &status, double temperature, const QString &alarm)
{
    return {{"id", id}, {"status", status}, {"temperature", temperature}, {"alarm", alarm}};
}

// The bytes of "演示报告", each taken for a Latin-1 character and written as UTF-8.
const QByteArray garbledTitle = QString::fromLatin1(QByteArray("演示报告")).toUtf8();

const QByteArray defaultReport = "Qt-UI Orvane " + garbledTitle + "\n"
                               + "\n"
                                 "Pump-001, 主冷却泵, 正常, \n"
                                 "Pump-002, 备用冷却泵, 预警, 温度持续升高\n"
                                 "Valve-014, 蒸汽阀门, 严重, 压力波动\n"
                                 "Fan-008, 排风机, 正常, \n"
                                 "Motor-021, 输送电机, 预警, 振动超过阈值\n";

} // namespace

class TestDeviceTools : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void toolsAreOfferedInOrder();
    void toolsHaveTheirDefinitions_data();
    void toolsHaveTheirDefinitions();
    void takenNamesAreLeftToTheirTools();
    void systemPrompt();
    void statusOfADevice();
    void statusOfAnUnknownDevice_data();
    void statusOfAnUnknownDevice();
    void abnormalDevicesInTableOrder();
    void everyStatusButNormalIsAbnormal();
    void alarmSummary();
    void allDevices();
    void reportHasHeaderAndDeviceLines();
    void reportGoesToTheTemporaryFolder_data();
    void reportGoesToTheTemporaryFolder();
    void reportReplacesAnEarlierOne();
    void absoluteNameLeavesTheTemporaryFolder();
    void reportThatCannotBeWritten_data();
    void reportThatCannotBeWritten();
    void reportOnAFullDeviceFails();

private:
    ToolResult invoke(const QString &name, const QJsonObject &arguments = {}) const
    {
        return m_registry->tool(name)->invoke(arguments);
    }

    QString path(const QString &name) const { return m_folder.filePath(name); }

    QByteArray bytesOf(const QString &name) const
    {
        QFile file(path(name));
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("(no file)");
    }

    const QTemporaryDir m_root;
    int m_testNumber = 0;
    QDir m_folder; // for temporary files, a fresh one for every test
    QScopedPointer<ToolRegistry> m_registry;
};

void TestDeviceTools::initTestCase()
{
    QVERIFY(m_root.isValid());
#if QT_VERSION < QT_VERSION_CHECK(6, 0, 0)
    QTextCodec::setCodecForLocale(QTextCodec::codecForName("UTF-8"));
#endif
}

void TestDeviceTools::init()
{
    const QString folder = m_root.filePath(QString::number(++m_testNumber));
    QVERIFY(QDir().mkdir(folder));
    qputenv("TMPDIR", QFile::encodeName(folder));
    m_folder = QDir(folder);
    m_registry.reset(new ToolRegistry);
    registerDeviceTools(m_registry.data(), demoDevices());
}

void TestDeviceTools::toolsAreOfferedInOrder()
{
    QStringList names;
    for (const ToolDefinition &tool : m_registry->definitions())
        names.append(tool.name);
    QCOMPARE(names, QStringList({"query_device_status", "find_abnormal_devices", "generate_alarm_summary",
                                 "export_report", "query_all_device"}));
}

void TestDeviceTools::toolsHaveTheirDefinitions_data()
{
    const QJsonObject noArguments{{"type", "object"}, {"properties", QJsonObject()}};
    const QJsonObject deviceId{{"type", "string"}, {"description", "设备 id，例如 Pump-001"}};
    const QJsonObject fileName{{"type", "string"}, {"description", "输出文件名"}};
    QTest::addColumn<QString>("description");
    QTest::addColumn<QJsonObject>("parameters");
    QTest::addColumn<int>("permission");
    QTest::newRow("query_device_status") << "按 deviceId 查询单个演示设备状态。"
                                         << QJsonObject{{"type", "object"},
                                                        {"properties", QJsonObject{{"deviceId", deviceId}}},
                                                        {"required", QJsonArray{"deviceId"}}}
                                         << 0;
    QTest::newRow("find_abnormal_devices") << "查找预警或严重状态的演示设备。" << noArguments << 0;
    QTest::newRow("generate_alarm_summary") << "为异常设备生成简要告警摘要。" << noArguments << 0;
    QTest::newRow("export_report") << "将演示报告导出到系统临时目录。"
                                   << QJsonObject{{"type", "object"},
                                                  {"properties", QJsonObject{{"fileName", fileName}}}}
                                   << 4;
    QTest::newRow("query_all_device") << "查询所有的设备。" << noArguments << 0;
}

void TestDeviceTools::toolsHaveTheirDefinitions()
{
    QFETCH(QString, description);
    QFETCH(QJsonObject, parameters);
    QFETCH(int, permission);
    const AgentTool *tool = m_registry->tool(QTest::currentDataTag());
    QVERIFY(tool);
    QCOMPARE(tool->description(), description);
    QCOMPARE(tool->parameters(), parameters);
    QCOMPARE(int(tool->permission()), permission);
    QCOMPARE(tool->parent(), m_registry.data());
}

void TestDeviceTools::takenNamesAreLeftToTheirTools()
{
    const AgentTool *first = m_registry->tool("export_report");
    registerDeviceTools(m_registry.data(), {});
    QCOMPARE(m_registry->tool("export_report"), first);
    QCOMPARE(m_registry->definitions().size(), 5);
    QCOMPARE(m_registry->children().size(), 5);
}

void TestDeviceTools::systemPrompt()
{
    QCOMPARE(
        deviceSystemPrompt(),
        "你是设备状态分析助手。用户要求查找异常设备、生成告警摘要或导出报告时，应优先使用可用工具完成任务。"
        "需要导出报告时调用 export_report。");
}

void TestDeviceTools::statusOfADevice()
{
    const ToolResult result = invoke("query_device_status", {{"deviceId", "Valve-014"}});
    QVERIFY(result.success);
    QCOMPARE(result.content, "Valve-014 当前状态：严重。");
    QCOMPARE(result.data, (QJsonObject{{"id", "Valve-014"},
                                       {"name", "蒸汽阀门"},
                                       {"status", "严重"},
                                       {"temperature", 88.1},
                                       {"vibration", 0.66},
                                       {"alarm", "压力波动"}}));
    QCOMPARE(result.error, QString());
}

void TestDeviceTools::statusOfAnUnknownDevice_data()
{
    QTest::addColumn<QJsonObject>("arguments");
    QTest::addColumn<QString>("error");
    QTest::newRow("unknown") << QJsonObject{{"deviceId", "Pump-003"}} << "未找到设备：Pump-003";
    QTest::newRow("lower case") << QJsonObject{{"deviceId", "pump-001"}} << "未找到设备：pump-001";
    QTest::newRow("blanks around") << QJsonObject{{"deviceId", " Pump-001 "}} << "未找到设备： Pump-001 ";
    QTest::newRow("format marker") << QJsonObject{{"deviceId", "%1"}} << "未找到设备：%1";
    QTest::newRow("number") << QJsonObject{{"deviceId", 1}} << "未找到设备：";
    QTest::newRow("object") << QJsonObject{{"deviceId", QJsonObject()}} << "未找到设备：";
    QTest::newRow("missing key") << QJsonObject() << "未找到设备：";
}

void TestDeviceTools::statusOfAnUnknownDevice()
{
    QFETCH(QJsonObject, arguments);
    QFETCH(QString, error);
    const ToolResult result = invoke("query_device_status", arguments);
    QVERIFY(!result.success);
    QCOMPARE(result.error, error);
    QCOMPARE(result.content, QString());
    QCOMPARE(result.data, QJsonObject());
}

void TestDeviceTools::abnormalDevicesInTableOrder()
{
    const ToolResult result = invoke("find_abnormal_devices");
    QVERIFY(result.success);
    QCOMPARE(result.content, "异常设备：Pump-002, Valve-014, Motor-021");
    const QJsonArray devices{listEntry("Pump-002", "预警", 74.5, "温度持续升高"),
                             listEntry("Valve-014", "严重", 88.1, "压力波动"),
                             listEntry("Motor-021", "预警", 69.3, "振动超过阈值")};
    QCOMPARE(result.data, (QJsonObject{{"devices", devices}}));
}

void TestDeviceTools::everyStatusButNormalIsAbnormal()
{
    ToolRegistry registry;
    registerDeviceTools(&registry, {{"A", "a", "正常", 900, 9, "hot"}, {"B", "b", "离线", 1, 0, QString()}});
    const ToolResult result = registry.tool("find_abnormal_devices")->invoke({});
    QCOMPARE(result.content, "异常设备：B");
}

void TestDeviceTools::alarmSummary()
{
    const ToolResult result = invoke("generate_alarm_summary");
    QVERIFY(result.success);
    QCOMPARE(result.content, "告警摘要：Pump-002 (预警): 温度持续升高; Valve-014 (严重): 压力波动; "
                             "Motor-021 (预警): 振动超过阈值");
    QCOMPARE(result.data, QJsonObject());
}

void TestDeviceTools::allDevices()
{
    const ToolResult result = invoke("query_all_device");
    QVERIFY(result.success);
    QCOMPARE(result.content, "设备：Pump-001, Pump-002, Valve-014, Fan-008, Motor-021");
    const QJsonArray devices{
        listEntry("Pump-001", "正常", 53.2, ""), listEntry("Pump-002", "预警", 74.5, "温度持续升高"),
        listEntry("Valve-014", "严重", 88.1, "压力波动"), listEntry("Fan-008", "正常", 42.0, ""),
        listEntry("Motor-021", "预警", 69.3, "振动超过阈值")};
    QCOMPARE(result.data, (QJsonObject{{"devices", devices}}));
}

void TestDeviceTools::reportHasHeaderAndDeviceLines()
{
    const ToolResult result = invoke("export_report", {{"fileName", "r.txt"}});
    QVERIFY(result.success);
    QCOMPARE(result.content, "报告已导出到 " + path("r.txt"));
    QCOMPARE(result.data, (QJsonObject{{"path", path("r.txt")}}));
    QCOMPARE(bytesOf("r.txt"), defaultReport);
}

void TestDeviceTools::reportGoesToTheTemporaryFolder_data()
{
    QTest::addColumn<QJsonObject>("arguments");
    QTest::addColumn<QString>("name");
    QTest::newRow("named") << QJsonObject{{"fileName", "a b.txt"}} << "a b.txt";
    QTest::newRow("Chinese name") << QJsonObject{{"fileName", "报告.txt"}} << "报告.txt";
    QTest::newRow("no name") << QJsonObject() << "orvane-demo-report.txt";
    QTest::newRow("a number") << QJsonObject{{"fileName", 7}} << "orvane-demo-report.txt";
    QTest::newRow("null") << QJsonObject{{"fileName", QJsonValue()}} << "orvane-demo-report.txt";
    QTest::newRow("a list") << QJsonObject{{"fileName", QJsonArray{"x"}}} << "orvane-demo-report.txt";
}

void TestDeviceTools::reportGoesToTheTemporaryFolder()
{
    QFETCH(QJsonObject, arguments);
    QFETCH(QString, name);
    const ToolResult result = invoke("export_report", arguments);
    QVERIFY2(result.success, qPrintable(result.error));
    QCOMPARE(m_folder.entryList(QDir::Files), QStringList(name));
    QCOMPARE(bytesOf(name), defaultReport);
}

void TestDeviceTools::reportReplacesAnEarlierOne()
{
    QFile file(path("r.txt"));
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(QByteArray(10000, 'x'));
    file.close();
    QVERIFY(invoke("export_report", {{"fileName", "r.txt"}}).success);
    QCOMPARE(bytesOf("r.txt"), defaultReport);
}

void TestDeviceTools::absoluteNameLeavesTheTemporaryFolder()
{
    const QString target = m_root.filePath("elsewhere.txt");
    const ToolResult result = invoke("export_report", {{"fileName", target}});
    QVERIFY(result.success);
    QCOMPARE(result.content, "报告已导出到 " + target);
    QVERIFY(QFile::exists(target));
    QVERIFY(m_folder.isEmpty());
}

void TestDeviceTools::reportThatCannotBeWritten_data()
{
    QTest::addColumn<QString>("fileName");
    QTest::newRow("empty name") << "";
    QTest::newRow("folder that does not exist") << "none/r.txt";
    QTest::newRow("the folder itself") << ".";
    QTest::newRow("NUL in the name") << QString("r.txt") + QChar(0) + ".png";
    QTest::newRow("format marker") << "%1/%2";
}

void TestDeviceTools::reportThatCannotBeWritten()
{
    QFETCH(QString, fileName);
    const ToolResult result = invoke("export_report", {{"fileName", fileName}});
    QVERIFY(!result.success);
    QCOMPARE(result.error, "无法写入报告：" + m_folder.filePath(fileName));
    QCOMPARE(result.content, QString());
    QCOMPARE(result.data, QJsonObject());
    QVERIFY(m_folder.isEmpty());
}

void TestDeviceTools::reportOnAFullDeviceFails()
{
    if (!QFile::exists("/dev/full"))
        QSKIP("Needs /dev/full");
    const ToolResult result = invoke("export_report", {{"fileName", "/dev/full"}});
    QVERIFY(!result.success);
    QCOMPARE(result.error, "无法写入报告：/dev/full");
}

QTEST_GUILESS_MAIN(TestDeviceTools)
#include "tst_devicetools.moc"
