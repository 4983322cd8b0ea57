#ifndef MIRELOQTLIB_QTAGENT_GRAPHLAYOUT_P_H
#define MIRELOQTLIB_QTAGENT_GRAPHLAYOUT_P_H

#include <qtagent/stategraph.h>

#include <QPainterPath>
#include <QRectF>

namespace MireloQtLib {
namespace QtAgent {

/// A node in the picture of a graph, or the start or the end.
struct GraphBox
{
    QString name;
    QString label; // the name on one line, cut
    QRectF rect;
    bool isVirtual = false;     // the start or the end
    bool isMissing = false;     // an edge leads there, and no node has the name
    bool isInterrupted = false; // runs stop before it
};

/// An edge or a route in the picture of a graph.
struct GraphArrow
{
    int from = 0; // the index of a box
    int to = 0;
    QString key; // of a route
    bool isRoute = false;
    QString label; // the key on one line, cut
    QRectF labelRect;
    QPainterPath line;
    QPainterPath head;
};

/// The picture of a graph, in pixels. It knows no fonts: the same graph has the same picture everywhere.
struct GraphLayout
{
    QVector<GraphBox> boxes; // the start first, the end last
    QVector<GraphArrow> arrows;
    QRectF bounds;

    /// Returns the index of the box @p name, or -1.
    int indexOf(const QString &name) const;
};

/// Places the nodes in layers, each below those that lead to it, so that few arrows cross.
GraphLayout layoutOf(const StateGraph &graph);

} // namespace QtAgent
} // namespace MireloQtLib

#endif
