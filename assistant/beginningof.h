#ifndef ORVANE_BEGINNINGOF_H
#define ORVANE_BEGINNINGOF_H

#include <QString>

/// Returns @p text where it has at most @p maximum characters, else its beginning and "…", which are no
/// longer than that. No character outside the basic plane is cut in two.
inline QString beginningOf(const QString &text, int maximum)
{
    if (text.size() <= maximum)
        return text;
    const int end = text.at(maximum - 2).isHighSurrogate() ? maximum - 2 : maximum - 1;
    return text.left(end) + QChar(0x2026);
}

#endif
