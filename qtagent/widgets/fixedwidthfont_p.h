#ifndef MIRELOQTLIB_QTAGENT_FIXEDWIDTHFONT_P_H
#define MIRELOQTLIB_QTAGENT_FIXEDWIDTHFONT_P_H

#include <QApplication>
#include <QFont>

namespace MireloQtLib {
namespace QtAgent {

/// Returns the application's font with equally wide characters, for JSON and for what tools return.
inline QFont fixedWidthFont()
{
    QFont font = QApplication::font();
    font.setFamily(QStringLiteral("monospace"));
    font.setStyleHint(QFont::Monospace); // where no family has that name
    return font;
}

} // namespace QtAgent
} // namespace MireloQtLib

#endif
