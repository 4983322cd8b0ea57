#include "support/samplewindow.h"

#include <qtagent/asynctool.h>
#include <qtagent/toolregistry.h>

#include <QLabel>
#include <QPushButton>
#include <QSemaphore>
#include <QThreadPool>
#ifdef HAS_CONCURRENT
#    include <QtConcurrent>
#endif
#include <QtTest>

#include <memory>

using namespace MireloQtLib::QtAgent;

namespace {

// An instrument, and how many measurements it is at.
struct Device
{
    int running = 0;
};

class Measurement : public QObject
{
    Q_OBJECT

public:
    Measurement(Device *device, QObject *parent)
        : QObject(parent)
        , m_device(device)
    {}
    ~Measurement() override { stop(); }

    void begin()
    {
        ++m_device->running;
        m_isRunning = true;
    }

    void end(double celsius)
    {
        stop();
        Q_EMIT finished(celsius);
    }

Q_SIGNALS:
    void finished(double celsius);

private:
    void stop()
    {
        if (m_isRunning)
            --m_device->running;
        m_isRunning = false;
    }

    Device *const m_device;
    bool m_isRunning = false;
};

class Thermometer : public AsyncTool
{
public:
    explicit Thermometer(Device *device)
        : m_device(device)
    {}

    QString name() const override { return "thermometer"; }
    QString description() const override { return "Measures."; }
    QJsonObject parameters() const override { return {{"type", "object"}}; }
    ToolPermission permission() const override { return ToolPermission::ReadOnly; }
    ToolReply *start(const QJsonObject &, QObject *parent) override;

private:
    Device *const m_device;
};

#include "asynctool_2.inc"

// Has its result at once.
class QuickTool : public Thermometer
{
public:
    using Thermometer::Thermometer;

    ToolReply *start(const QJsonObject &arguments, QObject *parent) override
    {
        ToolReply *reply = Thermometer::start(arguments, parent);
        reply->findChild<Measurement *>()->end(20);
        return reply;
    }
};

// A window that calls a tool.
class CallWindow : public SampleWindow
{
public:
    void paste() override{
#include "asynctool_1.inc"
    }

    ToolReply *reply() const
    {
        return findChild<ToolReply *>();
    }
    Measurement *measurement() const
    {
        return findChild<Measurement *>();
    }

    AsyncTool *tool = nullptr;
    QJsonObject arguments;
    QLabel *const label = new QLabel(this);
    QPushButton *const stopButton = new QPushButton(this);
    ToolRegistry *const registry = new ToolRegistry(this);
};

const QJsonObject schema{{"type", "object"},
                         {"properties", QJsonObject{{"text", QJsonObject()}, {"limit", QJsonObject()}}}};

#ifdef HAS_CONCURRENT
QSemaphore rowsToRead;

ToolResult readTable(const QString &path, const QJsonObject &arguments)
{
    rowsToRead.acquire();
    ToolResult result;
    result.success = true;
    result.content = path + ": " + arguments["column"].toString();
    return result;
}

class TableWindow : public CallWindow
{
public:
    TableWindow()
    {
        const QString path = "plant.csv";
#    include "asynctool_3.inc"
        tool = qobject_cast<AsyncTool *>(registry->tool("read_table"));
        arguments = {{"column", "pressure"}};
    }
};
#endif

class SearchWindow : public CallWindow
{
public:
    SearchWindow()
    {
#include "asynctool_4.inc"
        tool = search;
        arguments = {{"text", "valve"}, {"limit", 3}};
    }
};

} // namespace

// Samples of tools that take time.
class TestSamplesTools : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void resultIsShown();
    void resultAtOnceIsShown();
    void progressIsShown();
    void buttonStopsTheCall();
    void windowMayBeDeletedDuringACall();
    void tableIsReadOnAnotherThread();
    void tableIsReadForAWindowThatIsGone();
    void programTellsItsFailure();
    void windowOfAProgramMayBeDeleted();

private:
    Device m_device;
    Thermometer m_thermometer{&m_device};
};

void TestSamplesTools::resultIsShown()
{
    CallWindow window;
    window.tool = &m_thermometer;
    window.paste();
    QCOMPARE(m_device.running, 1);
    window.measurement()->end(21.5);
    QCOMPARE(window.label->text(), "21.5");
    QTRY_VERIFY(!window.reply());
}

void TestSamplesTools::resultAtOnceIsShown()
{
    QuickTool tool(&m_device);
    CallWindow window;
    window.tool = &tool;
    window.paste();
    QCOMPARE(window.label->text(), "20");
    QTRY_VERIFY(!window.reply());
}

void TestSamplesTools::progressIsShown()
{
    CallWindow window;
    window.tool = &m_thermometer;
    window.paste();
    window.reply()->progress("half");
    QCOMPARE(window.label->text(), "half");
}

void TestSamplesTools::buttonStopsTheCall()
{
    CallWindow window;
    window.tool = &m_thermometer;
    window.paste();
    window.stopButton->click();
    QCOMPARE(window.label->text(), "Stopped.");
    QTRY_COMPARE(m_device.running, 0);
    QTRY_VERIFY(!window.reply());
}

void TestSamplesTools::windowMayBeDeletedDuringACall()
{
    auto window = std::make_unique<CallWindow>();
    window->tool = &m_thermometer;
    window->paste();
    window.reset();
    QCOMPARE(m_device.running, 0);
    runUntilQuiet();
}

void TestSamplesTools::tableIsReadOnAnotherThread()
{
#ifdef HAS_CONCURRENT
    TableWindow window;
    window.paste();
    QVERIFY(window.reply()->isRunning());
    rowsToRead.release();
    QTRY_COMPARE(window.label->text(), "plant.csv: pressure");
#else
    QSKIP("Qt Concurrent is not installed.");
#endif
}

void TestSamplesTools::tableIsReadForAWindowThatIsGone()
{
#ifdef HAS_CONCURRENT
    auto window = std::make_unique<TableWindow>();
    window->paste();
    window.reset();
    rowsToRead.release();
    QVERIFY(QThreadPool::globalInstance()->waitForDone());
    runUntilQuiet();
#else
    QSKIP("Qt Concurrent is not installed.");
#endif
}

void TestSamplesTools::programTellsItsFailure()
{
    if (QFileInfo::exists("/var/log/plant.log"))
        QSKIP("There is such a plant.");
    SearchWindow window;
    window.paste();
    QCOMPARE(window.label->text(), "");
    QTRY_VERIFY(!window.label->text().isEmpty());
    QVERIFY2(window.label->text().contains("Program ended with code 2."), qPrintable(window.label->text()));
}

void TestSamplesTools::windowOfAProgramMayBeDeleted()
{
    auto window = std::make_unique<SearchWindow>();
    window->paste();
    window.reset();
    runUntilQuiet();
}

QTEST_MAIN(TestSamplesTools)
#include "tst_samples_tools.moc"
