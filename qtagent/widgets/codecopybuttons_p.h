#ifndef MIRELOQTLIB_QTAGENT_CODECOPYBUTTONS_P_H
#define MIRELOQTLIB_QTAGENT_CODECOPYBUTTONS_P_H

#include <QMap>
#include <QObject>

QT_BEGIN_NAMESPACE
class QTextEdit;
class QToolButton;
QT_END_NAMESPACE

namespace MireloQtLib {
namespace QtAgent {

class TranscriptDocument;
struct TranscriptCode;

/// The buttons that copy the blocks of code of a transcript. They are children of the viewport, one for each
/// block of code in sight, in its upper right corner as far as that is in sight.
class CodeCopyButtons : public QObject
{
    Q_OBJECT

public:
    /// @p view shows @p transcript and owns the buttons.
    CodeCopyButtons(QTextEdit *view, TranscriptDocument *transcript);

    /// Puts the buttons where the blocks of code are now.
    void place();

private:
    QRect areaOf(const TranscriptCode &code) const;
    int firstInSight() const;
    void placeButton(int index, const QRect &area);
    void removeOthers(int first, int last);
    QToolButton *createButton(int index);
    void copy(int index);

    QTextEdit *m_view;
    TranscriptDocument *m_transcript;
    QMap<int, QToolButton *> m_buttons; // by the index of the code
};

} // namespace QtAgent
} // namespace MireloQtLib

#endif
