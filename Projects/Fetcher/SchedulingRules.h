#pragma once

#include "Projects/Fetcher/VideoThumbRequest.h"
#include "vrfetcher_export.h"

#include <QList>

#include <functional>

// The picker manager's decisions, kept free of threads and locks so that each rule
// can be checked on its own for any machine size.
namespace Veloran {

// Idle pickers kept while work goes on, and how long the cache survives without a
// finished picker.
constexpr int kMaxCachedPickers = 5;
constexpr qint64 kCacheKeepMs = 10000;

// About half the logical processors: (cores + 1) / 2 on unsigned values, so one core
// gives one slot and an unknown count (0) gives none.
VRFETCHER_EXPORT int maxConcurrentFor(unsigned logicalCores);

enum class NextStart { None, Video, Audio };

// One step of the scheduler's fill loop. Video always goes first; audio never takes
// the last free slot when there are two or more, and waits while `audioLimited`
// says so (asked only when audio would otherwise start).
VRFETCHER_EXPORT NextStart nextStart(int running, int maxConcurrent, bool videoWaiting,
                                     bool audioWaiting, const std::function<bool()> &audioLimited);

// Takes the consecutive requests for the head's file off the head of `queue`.
VRFETCHER_EXPORT QList<VideoThumbRequest> takeVideoBatch(QList<VideoThumbRequest> &queue);

// How many of the oldest idle pickers to drop: down to kMaxCachedPickers while a
// picker finished within kCacheKeepMs, all of them otherwise. A negative
// `msSinceLastRecycle` means no picker has finished yet.
VRFETCHER_EXPORT int pickersToEvict(int cached, qint64 msSinceLastRecycle);

} // namespace Veloran
