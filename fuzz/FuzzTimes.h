#pragma once

#include <QtGlobal>

#include <vector>

namespace Veloran::Fuzz {

// Times to seek to: a few positions across the duration and one past its end.
inline std::vector<long long> probeTimes(long long durationMs)
{
    const long long d = qBound(0LL, durationMs, 3600LL * 1000);
    return {0, d / 3, (2 * d) / 3, d + 40};
}

} // namespace Veloran::Fuzz
