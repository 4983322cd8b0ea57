#include "stategraph.h"

namespace MireloQtLib {
namespace QtAgent {

namespace {

struct Box
{
    QString name;
    bool isVirtual = false; // the start or the end
    bool isMissing = false;
    bool isInterrupted = false;
};

struct Arrow
{
    QString from;
    QString to;
    QString key;
    bool isRoute = false;
};

// A graph as a picture needs it, whatever the language.
struct Diagram
{
    QVector<Box> boxes; // the start first, the end last, the others between them in alphabetic order
    QVector<Arrow> arrows;
    QMap<QString, QString> ids;
};

QVector<Arrow> arrowsOf(const StateGraph &graph)
{
    QVector<Arrow> arrows;
    const QMap<QString, QString> edges = graph.edges();
    const QStringList routeSources = graph.routeSources();
    for (auto edge = edges.cbegin(); edge != edges.cend(); ++edge) {
        if (!routeSources.contains(edge.key()))
            arrows.append({edge.key(), edge.value(), {}, false});
    }
    for (const QString &from : routeSources) {
        const QMap<QString, QString> routes = graph.routes(from);
        for (auto route = routes.cbegin(); route != routes.cend(); ++route)
            arrows.append({from, route.value(), route.key(), true});
    }
    return arrows;
}

QStringList namesIn(const StateGraph &graph, const QVector<Arrow> &arrows)
{
    QStringList names = graph.nodeNames();
    for (const Arrow &arrow : arrows)
        names << arrow.from << arrow.to;
    names.removeAll(StartNode);
    names.removeAll(EndNode);
    names.sort();
    names.removeDuplicates();
    return QStringList{StartNode} + names + QStringList{EndNode};
}

Diagram diagramOf(const StateGraph &graph)
{
    Diagram diagram;
    diagram.arrows = arrowsOf(graph);
    const QStringList nodes = graph.nodeNames();
    const QStringList interrupts = graph.interrupts();
    const QStringList names = namesIn(graph, diagram.arrows);
    for (const QString &name : names) {
        const bool isVirtual = name == StartNode || name == EndNode;
        diagram.ids.insert(name, QStringLiteral("n%1").arg(diagram.boxes.size()));
        diagram.boxes.append(
            {name, isVirtual, !isVirtual && !nodes.contains(name), !isVirtual && interrupts.contains(name)});
    }
    return diagram;
}

bool isPlain(QChar character)
{
    return character.unicode() > 0x7f || character.isLetterOrNumber() || character == QLatin1Char(' ')
        || QStringLiteral("_-.,").contains(character);
}

// In quotation marks, with @p escape of what the language could take for its own.
template<typename Escape>
QString quoted(const QString &text, const Escape &escape)
{
    QString result;
    for (const QChar character : text) {
        if (character.category() == QChar::Other_Control)
            result += QLatin1Char(' ');
        else
            result += isPlain(character) ? QString(character) : escape(character);
    }
    return QLatin1Char('"') + result + QLatin1Char('"');
}

QString dotText(const QString &text)
{
    return quoted(text, [](QChar character) -> QString {
        if (character == QLatin1Char('"') || character == QLatin1Char('\\'))
            return QLatin1Char('\\') + QString(character);
        return character == QLatin1Char('&') ? QStringLiteral("&amp;") : QString(character);
    });
}

// An empty text would be no label.
QString mermaidText(const QString &text)
{
    return quoted(text.isEmpty() ? QStringLiteral(" ") : text,
                  [](QChar character) { return QStringLiteral("#%1;").arg(character.unicode()); });
}

} // namespace

QString toDot(const StateGraph &graph)
{
    const Diagram diagram = diagramOf(graph);
    QString text = QStringLiteral("digraph {\n    node [shape=box];\n");
    for (const Box &box : diagram.boxes) {
        const QString style = QLatin1String(box.isVirtual ? ", shape=ellipse" : "")
                            + QLatin1String(box.isMissing ? ", style=dashed" : "")
                            + QLatin1String(box.isInterrupted ? ", peripheries=2" : "");
        text += QStringLiteral("    %1 [label=%2%3];\n").arg(diagram.ids[box.name], dotText(box.name), style);
    }
    for (const Arrow &arrow : diagram.arrows) {
        const QString label =
            arrow.isRoute ? QStringLiteral(" [label=%1]").arg(dotText(arrow.key)) : QString();
        text +=
            QStringLiteral("    %1 -> %2%3;\n").arg(diagram.ids[arrow.from], diagram.ids[arrow.to], label);
    }
    return text + QStringLiteral("}\n");
}

QString toMermaid(const StateGraph &graph)
{
    const Diagram diagram = diagramOf(graph);
    QString text = QStringLiteral("flowchart TD\n");
    for (const Box &box : diagram.boxes) {
        QString shape = box.isVirtual ? QStringLiteral("    %1([%2])\n") : QStringLiteral("    %1[%2]\n");
        if (box.isInterrupted)
            shape = QStringLiteral("    %1[[%2]]\n");
        text += shape.arg(diagram.ids[box.name], mermaidText(box.name));
    }
    for (const Arrow &arrow : diagram.arrows) {
        const QString label = arrow.isRoute ? QStringLiteral("|%1|").arg(mermaidText(arrow.key)) : QString();
        text +=
            QStringLiteral("    %1 -->%2 %3\n").arg(diagram.ids[arrow.from], label, diagram.ids[arrow.to]);
    }
    for (const Box &box : diagram.boxes) {
        if (box.isMissing)
            text += QStringLiteral("    style %1 stroke-dasharray: 4\n").arg(diagram.ids[box.name]);
    }
    return text;
}

} // namespace QtAgent
} // namespace MireloQtLib
