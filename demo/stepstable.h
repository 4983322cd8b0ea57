#ifndef ORVANE_STEPSTABLE_H
#define ORVANE_STEPSTABLE_H

#include <qtagent/stategraph.h>

#include <QTableWidget>

#include <array>

/// The steps of a graph's run, one a row: the node, the route, the update and the state after the step.
///
/// A cell shows the beginning of its JSON, a tool tip more of it, indented. Return or a double click on a
/// step opens a dialog that shows all of it. Columns can be dragged; one that was keeps its width.
class StepsTable : public QTableWidget
{
    Q_OBJECT

public:
    explicit StepsTable(QWidget *parent = nullptr);
    ~StepsTable() override;

    /// Replaces the rows.
    void setSteps(const QVector<MireloQtLib::QtAgent::GraphStep> &steps);

private:
    void fitColumns();
    void fitColumn(int column);
    int fittingWidth(int column) const;
    void showStep(int row);

    QVector<MireloQtLib::QtAgent::GraphStep> m_steps;
    std::array<int, 4> m_fittedWidths;
};

#endif
