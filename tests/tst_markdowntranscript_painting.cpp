// What of the view is painted when text arrives.

#include "support/transcriptview.h"

#include <QScreen>

using namespace MireloQtLib::QtAgent;

namespace {

// What is painted of a widget from now on.
class PaintedArea : public QObject
{
public:
    explicit PaintedArea(QWidget *widget) { widget->installEventFilter(this); }

    QRect area() const { return m_area; }

    bool eventFilter(QObject *watched, QEvent *event) override
    {
        if (event->type() == QEvent::Paint)
            m_area |= static_cast<QPaintEvent *>(event)->rect();
        return QObject::eventFilter(watched, event);
    }

private:
    QRect m_area;
};

} // namespace

class TestMarkdownTranscriptPainting : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void newRowIsPaintedAlone();
    void screenShowsTheDocument();
};

// Painting all of a long table with each row would take long.
void TestMarkdownTranscriptPainting::newRowIsPaintedAlone()
{
    TranscriptView view;
    view.showSmall();
    view.add("| one | two |\n|---|---|\n| 1 | 2 |\n");
    view.add("| 3 | 4 |\n");
    PaintedArea painted(view.viewport());
    view.add("| 5 | 6 |\n");
    QTRY_VERIFY(painted.area().contains(view.pointAt(view.find("5"))));
    QVERIFY(painted.area().top() > view.pointAt(view.find("1")).y());
    view.add("| a cell that is wider than all others | 8 |\n");
    QTRY_VERIFY(painted.area().contains(view.pointAt(view.find("one"))));
}

void TestMarkdownTranscriptPainting::screenShowsTheDocument()
{
    const QString table =
        "Text\n\n| one | two |\n|:---|---:|\n| 1 | 2 |\n| 3 | **4** |\n| wider than | 6 |\n| 7 | 8 |\n"
        "| 9 | of two words |\n| 10 | 11 |\n\nmore\n\n";
    TranscriptView view;
    view.showSmall();
    for (const QChar character : table + "- a\n- b\n\n" + table + "`c`\n\n") {
        view.add(character);
        const QImage screen = view.screen()->grabWindow(view.winId()).toImage();
        const QImage document = view.grab().toImage();
        QCOMPARE(screen.convertToFormat(QImage::Format_RGB32),
                 document.convertToFormat(QImage::Format_RGB32));
    }
}

QTEST_MAIN(TestMarkdownTranscriptPainting)

#include "tst_markdowntranscript_painting.moc"
