#include "SchedulingRules.h"

namespace Veloran {

int maxConcurrentFor(unsigned logicalCores)
{
    return static_cast<int>((logicalCores + 1u) >> 1);
}

NextStart nextStart(int running, int maxConcurrent, bool videoWaiting, bool audioWaiting,
                    const std::function<bool()> &audioLimited)
{
    if (running >= maxConcurrent)
        return NextStart::None;
    if (videoWaiting)
        return NextStart::Video;
    if (!audioWaiting)
        return NextStart::None;
    if (audioLimited && audioLimited())
        return NextStart::None;
    // Keep one slot free for thumbnails, unless there is only one slot.
    if (maxConcurrent != 1 && running >= maxConcurrent - 1)
        return NextStart::None;
    return NextStart::Audio;
}

QList<VideoThumbRequest> takeVideoBatch(QList<VideoThumbRequest> &queue)
{
    QList<VideoThumbRequest> batch;
    if (queue.size() == 1) {
        batch.swap(queue);
        return batch;
    }
    if (queue.isEmpty())
        return batch;
    batch.append(queue.takeFirst());
    const QString file = batch.first().filePath;
    while (!queue.isEmpty() && queue.first().filePath == file)
        batch.append(queue.takeFirst());
    return batch;
}

int pickersToEvict(int cached, qint64 msSinceLastRecycle)
{
    const bool recentRecycle = msSinceLastRecycle >= 0 && msSinceLastRecycle <= kCacheKeepMs;
    if (!recentRecycle)
        return cached;
    return cached > kMaxCachedPickers ? cached - kMaxCachedPickers : 0;
}

} // namespace Veloran
