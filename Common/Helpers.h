#pragma once

#include "vrfetcher_export.h"

#include <QList>
#include <QString>

/// \file
/// Small free helpers shared across the library: nearest values, ids, UTF-8 checks,
/// name and file tests, path joining, even rounding. All are stateless and safe
/// from any thread.

namespace Veloran {

/// The element nearest to `target`; on equal distance the earliest in the list wins,
/// whatever its side. An empty list gives `target` back.
VRFETCHER_EXPORT int getNearestValue(const QList<int> &list, int target);
/// \overload
VRFETCHER_EXPORT double getNearestValue(const QList<double> &list, double target);
/// \overload
VRFETCHER_EXPORT long long getNearestValue(const QList<long long> &list, long long target);

/// A fresh random id: MD5 of a new braced UUID, 32 lower-case hex digits.
VRFETCHER_EXPORT QString md5FromQUuid();

/// Strict UTF-8: rejects stray continuation bytes, overlong forms, surrogates and
/// code points above U+10FFFF. An empty string is valid.
VRFETCHER_EXPORT bool isUtf8String(const char *text);

/// True for one of the social export targets ("YouTube", "Instagram", "TikTok",
/// "Facebook", "Likee", "Vimeo"), matched exactly and case-sensitively.
VRFETCHER_EXPORT bool isSocialType(const QString &name);

/// a + separator + b, cleaned: doubled separators, "." and ".." collapse.
VRFETCHER_EXPORT QString appendPath(const QString &a, const QString &b);

/// True for a readable still picture (format taken from the content); GIFs, missing
/// and unreadable files give false.
VRFETCHER_EXPORT bool isImage(const QString &path);

/// Odd values go up to the next even value; even values stay.
VRFETCHER_EXPORT int toEvenValue(int x);

/// The multiple of m nearest to n; a tie goes to the multiple farther from zero.
/// m must not be 0.
VRFETCHER_EXPORT int closestNumber(int n, int m);

/// Picks the GPU to name for a hardware codec from a description text (for example
/// a renderer string). The vendor is "NVIDIA" when the text contains it, else "AMD"
/// when it contains that (both case-sensitive); among that vendor's known models the first whose "name"
/// occurs in the text is returned; with no known model the vendor itself is
/// returned; a text naming neither vendor gives an empty string.
VRFETCHER_EXPORT QString getCodecGpuName(const QString &description);

} // namespace Veloran
