#ifndef ORVANE_PAGETOUR_H
#define ORVANE_PAGETOUR_H

#include <QDir>
#include <QElapsedTimer>
#include <QList>
#include <QObject>
#include <QStringList>
#include <QTimer>

QT_BEGIN_NAMESPACE
class QAbstractButton;
class QDialog;
class QStackedWidget;
class QTreeWidget;
class QTreeWidgetItem;
class QWidget;
QT_END_NAMESPACE

/// Visits every page of a window, uses it once and saves a picture of it.
///
/// On a page with a chat it asks a question; on any other it leaves the texts as they are and presses the
/// run buttons, one after the other. A page is done when its stop button is disabled and no reply that is a
/// child of the page or of the window is running. Approval dialogs are answered with "允许一次".
///
/// Pictures show the whole window, without a focus, and are named NN-title.png; those of dialogs are named
/// NN-title-approval.png. A page fails where it shows an error, where it is not idle in time, or where a
/// picture cannot be saved. The tour goes on behind it.
///
/// The window has a tree navigationTree whose entries hold page indexes of a stack pageStack (see
/// addPage()), and outlives the tour.
class PageTour : public QObject
{
    Q_OBJECT

public:
    /// Creates a tour of @p window that saves its pictures to @p folder.
    PageTour(QWidget *window, const QDir &folder, QObject *parent = nullptr);
    ~PageTour() override;

    /// Sets how long a page may run, in milliseconds; 30,000 unless set.
    void setTimeLimit(int milliseconds);

    /// Begins with the first page. The signals follow from the event loop.
    void start();

Q_SIGNALS:
    /// A page is done: @p report is a line of the form "NN-title ok" or "NN-title failed: ...".
    void pageDone(const QString &report);

    /// The last page is done. @p succeeded tells whether none failed.
    void finished(bool succeeded);

private:
    void visitNextPage();
    void askQuestion();
    void pressNextButton();
    void look();
    void stopPage();
    void leavePage();
    bool isIdle() const;
    QString pageName() const;
    void answerDialog(QDialog *dialog);
    void savePicture(QWidget *widget, const QString &suffix);

    QWidget *m_window;
    QDir m_folder;
    QTreeWidget *m_navigation;
    QStackedWidget *m_pages;
    QList<QTreeWidgetItem *> m_entries;
    QTimer m_timer;
    int m_timeLimit = 30000;
    bool m_succeeded = true;

    QWidget *m_page = nullptr;
    int m_pageNumber = 0;
    QList<QAbstractButton *> m_buttons;
    QElapsedTimer m_runTime;
    int m_notesBefore = 0;
    int m_dialogs = 0;
    QStringList m_failures;
};

#endif
