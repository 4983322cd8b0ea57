#ifndef QTAGENT_TESTS_APPROVALDIALOGS_H
#define QTAGENT_TESTS_APPROVALDIALOGS_H

#include <qtagent/widgets/approvaldialog.h>

#include <QApplication>
#include <QPointer>
#include <QTimer>
#include <QVector>

#include <functional>

/// Every approval dialog that the application shows while this lives, the first one first.
class ApprovalDialogs : public QObject
{
public:
    using ApprovalDialog = MireloQtLib::QtAgent::ApprovalDialog;

    ApprovalDialogs() { qApp->installEventFilter(this); }

    /// Is called in the next turn of the event loop after a dialog was shown, while it lives.
    std::function<void(ApprovalDialog *dialog)> onShown;

    int count() const { return int(m_shown.size()); }

    /// The dialog that was shown last, or null once it was deleted.
    ApprovalDialog *last() const { return m_shown.isEmpty() ? nullptr : m_shown.last().data(); }

    /// How many can be seen now.
    int visibleCount() const
    {
        int count = 0;
        for (const auto &dialog : m_shown)
            count += dialog && dialog->isVisible();
        return count;
    }

protected:
    bool eventFilter(QObject *watched, QEvent *event) override
    {
        auto *dialog = qobject_cast<ApprovalDialog *>(watched);
        if (dialog && event->type() == QEvent::Show) {
            m_shown.append(dialog);
            QTimer::singleShot(0, dialog, [this, dialog] {
                if (const auto handler = onShown) // which may be replaced while it runs
                    handler(dialog);
            });
        }
        return QObject::eventFilter(watched, event);
    }

private:
    QVector<QPointer<ApprovalDialog>> m_shown;
};

#endif
