#ifndef ORVANE_SIMPLEPAGE_H
#define ORVANE_SIMPLEPAGE_H

#include <demo/pageoutput.h>

#include <QPointer>
#include <QWidget>

#include <functional>

/// A page with one input, one run button and one output.
///
/// The run button, or Ctrl+Return, clears the output and calls the page's action with the trimmed input,
/// which may be empty. It stays enabled: a new run cancels the reply of the one before.
class SimplePage : public QWidget
{
    Q_OBJECT

public:
    /// Which of a page's two texts are JSON.
    enum class Json { None, Output, InputAndOutput };

    /// The texts of a page.
    struct Content
    {
        QString title;
        QString inputLabel;
        QString defaultInput;
        Json json = Json::None;
    };

    /// What the run button does.
    using Action = std::function<void(const QString &input, SimplePage *page)>;

    SimplePage(const Content &content, Action action, QWidget *parent = nullptr);
    ~SimplePage() override;

    /// Replaces the output by @p text.
    void showText(const QString &text);

    /// Streams @p reply, a child of this page, into the output.
    void showReply(MireloQtLib::QtAgent::ChatReply *reply, EarlierText earlierText = EarlierText::Clear);

private:
    void run();

    const Action m_action;
    QPlainTextEdit *m_input = nullptr;
    QPlainTextEdit *m_output = nullptr;
    QPointer<MireloQtLib::QtAgent::ChatReply> m_reply;
};

#endif
