#ifndef ORVANE_LIBRARYTEXTS_H
#define ORVANE_LIBRARYTEXTS_H

#include <QString>

/// Returns @p text in the language of the program where it is one that the library itself gives to a call, a
/// failure or a profile, and any other text as it is.
///
/// For what is shown only: what is kept, and what goes to a model, stays as the library has it.
QString shownText(const QString &text);

#endif
