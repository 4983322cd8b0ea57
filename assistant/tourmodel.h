#ifndef ORVANE_TOURMODEL_H
#define ORVANE_TOURMODEL_H

#include <qtagent/completionreply.h>

/// A model that answers from a script which the last question names: "markdown", "half", "cut", "think",
/// "fail" with a status, "clock" and "write". An answer that calls a tool is followed by one that ends.
class TourModel : public MireloQtLib::QtAgent::ChatModel
{
    Q_OBJECT

public:
    explicit TourModel(QObject *parent = nullptr);
    ~TourModel() override;

    MireloQtLib::QtAgent::ChatReply *chat(const QVector<MireloQtLib::QtAgent::ChatMessage> &messages,
                                          const QVector<MireloQtLib::QtAgent::ToolDefinition> &tools,
                                          QObject *parent) override;
};

#endif
