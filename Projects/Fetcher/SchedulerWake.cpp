#include "SchedulerWake.h"

#include "Projects/Fetcher/SchedulerClock.h"

#include <algorithm>
#include <chrono>

namespace Veloran {

SchedulerWake::SchedulerWake(const SchedulerClock &clock)
    : mClock(clock)
{
}

void SchedulerWake::wake()
{
    {
        std::lock_guard<std::mutex> locker(mMutex);
        mPending = true;
    }
    mCondition.notify_one();
}

void SchedulerWake::wakeAfter(qint64 delayMs)
{
    {
        std::lock_guard<std::mutex> locker(mMutex);
        mDelayedAt = mClock.nowMs() + delayMs;
    }
    mCondition.notify_one();
}

void SchedulerWake::recheck()
{
    // Taken so that the sleeper is either before its check or inside its wait.
    { std::lock_guard<std::mutex> locker(mMutex); }
    mCondition.notify_one();
}

void SchedulerWake::sleepUntil(qint64 untilMs)
{
    std::unique_lock<std::mutex> locker(mMutex);
    for (;;) {
        // The clock is read between the look at the wake and the wait: a waker
        // that did not hold the lock could wake in there and be lost.
        const bool woken = mPending;
        const qint64 now = mClock.nowMs();
        const bool delayedDue = mDelayedAt >= 0 && now >= mDelayedAt;
        if (delayedDue)
            mDelayedAt = -1;
        if (woken || delayedDue || now >= untilMs)
            break;
        const qint64 until = mDelayedAt >= 0 ? std::min(untilMs, mDelayedAt) : untilMs;
        mCondition.wait_for(locker, std::chrono::milliseconds(until - now));
    }
    mPending = false;
}

} // namespace Veloran
