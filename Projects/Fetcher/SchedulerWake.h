#pragma once

#include <QtGlobal>

#include <condition_variable>
#include <mutex>

namespace Veloran {

class SchedulerClock;

// How the scheduler thread sleeps and is woken. A wake is kept until the sleeper
// takes it, so one that comes while the scheduler is busy (or about to sleep) is
// never lost; a delayed wake is a deadline on the scheduler's clock, so it needs no
// event loop in any thread. Standard locks, so that the thread sanitizer sees them.
class SchedulerWake
{
public:
    explicit SchedulerWake(const SchedulerClock &clock);

    // A round at once.
    void wake();
    // A round `delayMs` from now; a later call moves the time (debounce).
    void wakeAfter(qint64 delayMs);
    // The clock moved by other means than time passing (test clocks): look again.
    void recheck();

    // Returns when woken, when a delayed wake is due, or at `untilMs` on the clock;
    // takes the wake.
    void sleepUntil(qint64 untilMs);

private:
    const SchedulerClock &mClock;
    std::mutex mMutex;
    std::condition_variable mCondition;
    bool mPending = false;
    qint64 mDelayedAt = -1; // none
};

} // namespace Veloran
