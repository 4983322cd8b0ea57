#ifndef MIRELOQTLIB_QTAGENT_GRAPHVIEW_H
#define MIRELOQTLIB_QTAGENT_GRAPHVIEW_H

#include <qtagent/stategraph.h>
#include <qtagent/widgets/qtagent_widgets_export.h>

#include <QGraphicsView>

#include <memory>

namespace MireloQtLib {
namespace QtAgent {

class GraphRun;

/// A graph as a picture, with the way that a run takes through it.
///
/// @code
/// auto *view = new GraphView(this);
/// view->follow(run);
/// @endcode
/// shows a run live, and
/// @code
/// auto *view = new GraphView(this);
/// view->setGraph(graph);
/// view->showResult(graph.run({}));
/// connect(slider, &QSlider::valueChanged, view, &GraphView::setStep);
/// @endcode
/// one that is over.
///
/// The start is at the top, and each node below those that lead to it; arrows that lead up close a circle.
/// Routes show their keys, nodes that runs stop before have a double outline. What StateGraph::problems()
/// tells stands below the picture, and the nodes that it names are red and dashed.
///
/// The marks of a node, each with a colour and a sign: it has run (a tick, and how often), it is running (a
/// triangle), the run stopped before it (two bars), it failed (a cross). The edges that were taken are thick.
/// The colours come from the palette, and every text is readable on its ground, light or dark.
///
/// A node is selected by a click, with selectNode(), or with the arrow keys, which go to the next node in
/// their direction. The keys + and -, and the wheel with Ctrl, zoom; 0 goes back to the zoom at first: the
/// whole graph where it stays readable, else its start. Dragging moves the picture. Tab leaves the view. The
/// accessible name is "流程图", the accessible description tells the selected node, its state and its routes.
///
/// The same graph has the same picture everywhere; names longer than 24 characters are cut, and whole in the
/// tool tip. Like every widget the view belongs to the application's main thread.
class QTAGENT_WIDGETS_EXPORT GraphView : public QGraphicsView
{
    Q_OBJECT

public:
    /// Creates a view without a graph.
    explicit GraphView(QWidget *parent = nullptr);
    ~GraphView() override;

    /// Shows @p graph, without a run. Ends follow().
    void setGraph(const StateGraph &graph);

    /// Shows the way of @p result through the graph, to its end. Nodes that the graph does not have are
    /// passed over. After an error the node that it names has failed, else the last one that has run; where
    /// none has run, none failed.
    void showResult(const MireloQtLib::QtAgent::GraphRunResult &result);

    /// Returns the step that is current: an index into the steps of the result, -1 for none, and their number
    /// at the end.
    int currentStep() const;

    /// Shows the graph of @p run, and where it stands from now on, at once where it is in flight. Null ends
    /// that; the picture stays, as it does when the run is deleted.
    void follow(GraphRun *run);

    /// Selects the node @p name and scrolls to it; an unknown name selects none. Nothing is emitted.
    void selectNode(const QString &name);

    /// Returns the name of the selected node, or an empty text.
    QString selectedNode() const;

    /// Returns the picture as SVG, in the colours that are shown. It holds neither scripts nor links.
    QByteArray toSvg() const;

public Q_SLOTS:
    /// Plays the run back: the steps before @p step are done, @p step is current. -1 shows none, and a number
    /// beyond the last step the end of the run. Does nothing without a result.
    void setStep(int step);

protected:
    /// Shows the tool tip of a node.
    bool viewportEvent(QEvent *event) override;
    /// Takes over the colours of a new palette.
    void changeEvent(QEvent *event) override;
    /// Selects and zooms.
    void keyPressEvent(QKeyEvent *event) override;
    /// Selects the node under the pointer.
    void mousePressEvent(QMouseEvent *event) override;
    /// Fits the graph in, unless the user has zoomed.
    void resizeEvent(QResizeEvent *event) override;
    /// Zooms with Ctrl, else scrolls.
    void wheelEvent(QWheelEvent *event) override;

private:
    class Private;
    const std::unique_ptr<Private> d;
};

} // namespace QtAgent
} // namespace MireloQtLib

#endif
