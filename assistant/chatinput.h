#ifndef ORVANE_CHATINPUT_H
#define ORVANE_CHATINPUT_H

#include <QPlainTextEdit>

/// A field for questions that is as high as its text, from two lines to eight, and that scrolls from then on.
///
/// Tab leaves it. Pasted text is plain.
class ChatInput : public QPlainTextEdit
{
    Q_OBJECT

public:
    /// What sends the question, besides a button.
    enum class SendKey {
        Return,     ///< Return; Shift+Return makes a line
        CtrlReturn, ///< Ctrl+Return; Return makes a line
    };
    Q_ENUM(SendKey)

    /// Creates an empty field that Ctrl+Return sends.
    explicit ChatInput(QWidget *parent = nullptr);
    ~ChatInput() override;

    /// Sets what sends the question. Ctrl+Return does either way, and the keypad's Enter is a Return.
    void setSendKey(SendKey key);

    /// Returns what sends the question.
    SendKey sendKey() const;

    /// Returns the size of the text within the limits.
    QSize sizeHint() const override;

    /// Returns the size of two lines.
    QSize minimumSizeHint() const override;

Q_SIGNALS:
    /// The key that sends was pressed. The text is as it was.
    void submitted();

protected:
    void keyPressEvent(QKeyEvent *event) override;
    void changeEvent(QEvent *event) override;

private:
    bool isSending(const QKeyEvent &event) const;
    int heightFor(int lines) const;

    SendKey m_sendKey = SendKey::CtrlReturn;
};

#endif
