#pragma once

#include "vrfetcher_export.h"

#include <QString>

#include <chrono>

namespace Veloran {

/// Measures from construction to destruction and, when named, logs
/// `"name"  cost : <microseconds> (ns)` through qDebug. The figure is microseconds
/// rounded half up; the "(ns)" label is the one existing log readers match on.
/// A stopwatch belongs to the scope (and thread) that made it.
class VRFETCHER_EXPORT Stopwatch
{
public:
    /// Starts measuring now; a nameless stopwatch measures but never logs.
    explicit Stopwatch(const QString &name = QString());
    /// Logs the elapsed time when named.
    ~Stopwatch();

    Stopwatch(const Stopwatch &) = delete;
    Stopwatch &operator=(const Stopwatch &) = delete;

    /// Nanoseconds -> microseconds, rounding on the hundreds digit.
    static long long roundedMicroseconds(long long elapsedNs);

private:
    std::chrono::steady_clock::time_point mStart;
    QString mName;
};

} // namespace Veloran
