#ifndef QTAGENT_TESTS_HEAPUSAGE_H
#define QTAGENT_TESTS_HEAPUSAGE_H

#include <QtGlobal>

#include <cstdlib>
#include <optional>

#ifdef __GLIBC__
#    include <malloc.h>
#endif

#if defined(__SANITIZE_ADDRESS__)
#    define QTAGENT_FOREIGN_ALLOCATOR
#elif defined(__has_feature)
#    if __has_feature(address_sanitizer)
#        define QTAGENT_FOREIGN_ALLOCATOR
#    endif
#endif

/// Returns the bytes that this program has allocated and not freed, or nothing where the C library cannot
/// tell or a sanitizer allocates in its place.
inline std::optional<qint64> heapUsage()
{
#if defined(__GLIBC__) && !defined(QTAGENT_FOREIGN_ALLOCATOR)
    const struct mallinfo2 usage = mallinfo2();
    return static_cast<qint64>(usage.uordblks + usage.hblkhd);
#else
    return std::nullopt;
#endif
}

#endif
