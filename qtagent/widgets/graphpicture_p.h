#ifndef MIRELOQTLIB_QTAGENT_GRAPHPICTURE_P_H
#define MIRELOQTLIB_QTAGENT_GRAPHPICTURE_P_H

#include "graphlayout_p.h"

#include <QColor>
#include <QPalette>
#include <QSet>

class QPainter;

namespace MireloQtLib {
namespace QtAgent {

/// What is known of a node in a run.
enum class GraphMark { None, Done, Current, Waiting, Failed };

/// Colours on the ground of a palette, on which every text is readable.
struct GraphColors
{
    explicit GraphColors(const QPalette &palette);

    QColor of(GraphMark mark) const;

    /// The ground of a box, tinted with @p mark.
    QColor tint(const QColor &mark) const;

    QColor ground;
    QColor text;
    QColor line;
    QColor selection;
    QColor failed;

private:
    QColor m_done;
    QColor m_current;
    QColor m_waiting;
};

/// Returns @p color, lighter or darker where it is not readable on @p ground (4.5:1).
QColor readableOn(const QColor &ground, const QColor &color);

/// A line, an area, or a text.
struct GraphShape
{
    QPainterPath path;
    QColor stroke; // invalid for none
    QColor fill;
    qreal width = 1;
    bool isDashed = false;
    QString text; // in the middle of textRect, or at its left
    QRectF textRect;
    bool isLeft = false;
};

/// The picture of a graph with the marks of a run, as a list of shapes from the back to the front.
struct GraphPicture
{
    GraphLayout layout;
    QStringList problems;
    QVector<GraphMark> marks; // by box
    QVector<int> runs;        // by box, how often it ran
    QSet<int> taken;          // arrows
    int selected = -1;        // a box

    void setGraph(const StateGraph &graph);

    void clearMarks();

    /// Marks a box that has run once more.
    void count(int box);

    /// Returns the problems that name the box.
    const QStringList &problemsOf(int box) const;

    /// The layout, and the problems below it.
    QRectF bounds() const;

    QVector<GraphShape> shapes(const GraphColors &colors) const;

private:
    void addArrow(int index, const GraphColors &colors, QVector<GraphShape> *shapes) const;
    void addBox(int index, const GraphColors &colors, QVector<GraphShape> *shapes) const;

    QVector<QStringList> m_problemsOf; // by box
};

void paint(const QVector<GraphShape> &shapes, QPainter *painter);

QByteArray toSvg(const QVector<GraphShape> &shapes, const QRectF &bounds, const QColor &ground);

} // namespace QtAgent
} // namespace MireloQtLib

#endif
