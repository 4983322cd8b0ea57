#ifndef ORVANE_PAGELAYOUT_H
#define ORVANE_PAGELAYOUT_H

#include <QString>

QT_BEGIN_NAMESPACE
class QGroupBox;
class QTableView;
class QWidget;
QT_END_NAMESPACE

// How the parts of a page are laid out.

/// The margin around a page, in pixels.
constexpr int pageMargin = 14;

/// Returns a group box titled @p title that holds @p content.
QGroupBox *createTitledArea(const QString &title, QWidget *content);

/// Lays @p form, which keeps its width, and @p results out side by side on @p page.
void layOutPage(QWidget *page, QWidget *form, QWidget *results);

/// Lets the last column of @p table take the width that is left, and at least @p minimum pixels.
void stretchLastColumn(QTableView *table, int minimum);

#endif
