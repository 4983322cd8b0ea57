#include "support/shownpage.h"
#include "support/stylesheet.h"

#include <demo/demostartup.h>

#include <QApplication>
#include <QCheckBox>
#include <QGroupBox>
#include <QLabel>
#include <QScrollBar>
#include <QSplitter>
#include <QTableWidget>
#include <QtTest>

namespace {

const QSize smallWindow(1024, 600);

void useLook(bool dark, int pointSize)
{
    QFont font = QApplication::font();
    font.setPointSize(pointSize);
    QApplication::setFont(font);
    useStyleSheet(dark);
}

// The widgets that the pages are laid out from, without the parts that those are made of.
QList<QWidget *> partsOf(QWidget *container)
{
    QList<QWidget *> parts;
    const auto children = container->findChildren<QWidget *>(QString(), Qt::FindDirectChildrenOnly);
    for (QWidget *child : children) {
        const bool isContainer = child->layout() || qobject_cast<QSplitter *>(child);
        if (!child->isVisible() || child->isWindow())
            continue;
        parts += isContainer ? partsOf(child) : QList<QWidget *>{child};
    }
    return parts;
}

QRect inWindow(const QWidget *widget)
{
    return {widget->mapTo(widget->window(), QPoint()), widget->size()};
}

QString describe(const QWidget *widget)
{
    const QRect rect = inWindow(widget);
    return QString("%1 %2 at %3,%4 with %5x%6")
        .arg(widget->metaObject()->className(), widget->objectName(), QString::number(rect.x()),
             QString::number(rect.y()), QString::number(rect.width()), QString::number(rect.height()));
}

// What is wrong with where the parts are, one after the other.
QStringList faultsOf(const QList<QWidget *> &parts)
{
    QStringList faults;
    for (const QWidget *part : parts) {
        if (!part->visibleRegion().contains(part->rect().topLeft())
            || !part->visibleRegion().contains(part->rect().bottomRight()))
            faults += "outside: " + describe(part);
        if (part->width() < part->minimumSizeHint().width()
            || part->height() < part->minimumSizeHint().height())
            faults += "cut: " + describe(part);
        for (const QWidget *other : parts) {
            if (other != part && inWindow(other).intersects(inWindow(part)))
                faults += "overlapping: " + describe(part);
        }
    }
    return faults;
}

} // namespace

// Small screens show less, and still all that is needed.
class TestSmallWindow : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanup();

    void nothingIsCutOrOverlaps_data();
    void nothingIsCutOrOverlaps();
    void devicesAreSeenWithTheirAlarms_data();
    void devicesAreSeenWithTheirAlarms();

private:
    QFont m_font;
};

void TestSmallWindow::initTestCase()
{
    applyDemoStyle();
    m_font = QApplication::font();
}

void TestSmallWindow::cleanup()
{
    qApp->setStyleSheet(QString());
    QApplication::setFont(m_font);
}

void TestSmallWindow::nothingIsCutOrOverlaps_data()
{
    QTest::addColumn<bool>("dark");
    QTest::addColumn<int>("pointSize");
    for (const int pointSize : {9, 12}) {
        QTest::addRow("dark, %d points", pointSize) << true << pointSize;
        QTest::addRow("plain, %d points", pointSize) << false << pointSize;
    }
}

void TestSmallWindow::nothingIsCutOrOverlaps()
{
    QFETCH(bool, dark);
    QFETCH(int, pointSize);
    useLook(dark, pointSize);
    ShownPage shown("基础对话");
    shown.window()->resize(smallWindow);

    for (const QString &title : shown.titles()) {
        shown.turnTo(title);
        QCoreApplication::processEvents();
        QCOMPARE(shown.window()->size(), smallWindow);
        const QList<QWidget *> parts = partsOf(shown.window());
        QVERIFY2(parts.size() >= 5, qPrintable(QString::number(parts.size())));
        const QStringList faults = faultsOf(parts);
        QVERIFY2(faults.isEmpty(), qPrintable(title + ": " + faults.join("; ")));
    }
}

void TestSmallWindow::devicesAreSeenWithTheirAlarms_data()
{
    nothingIsCutOrOverlaps_data();
}

void TestSmallWindow::devicesAreSeenWithTheirAlarms()
{
    QFETCH(bool, dark);
    QFETCH(int, pointSize);
    useLook(dark, pointSize);
    ShownPage shown("数据分析");
    shown.window()->resize(smallWindow);
    QCoreApplication::processEvents();

    const auto *table = shown.child<QTableWidget>("deviceTable");
    QCOMPARE(table->horizontalScrollBar()->maximum(), 0);
    QCOMPARE(table->verticalScrollBar()->maximum(), 0);
    const QAbstractItemView *view = table;
    for (int column = 0; column < table->columnCount(); ++column)
        QVERIFY(table->columnWidth(column) >= view->sizeHintForColumn(column));
}

QTEST_MAIN(TestSmallWindow)
#include "tst_smallwindow.moc"
