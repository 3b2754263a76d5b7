#pragma once

#include "vrfetcher_export.h"

#include <QMutex>
#include <QWaitCondition>

#include <atomic>

namespace Veloran {

/// A wait that tells its waiter why it woke: true after wakeOne(), false after
/// wakeOneFalse() or a timeout. Wakes are not counted: one that comes while nobody
/// waits is lost, and the next wait() sleeps until the next wake or its timeout.
/// Meant for one waiting thread; wakes may come from any thread.
class VRFETCHER_EXPORT WaitCondition
{
public:
    /// `flag` is the initial wake result; every wait() resets it to true anyway.
    explicit WaitCondition(bool flag = true);
    /// Logs "~WaitCondition()...." through qDebug. Nobody may still wait.
    ~WaitCondition();

    WaitCondition(const WaitCondition &) = delete;
    WaitCondition &operator=(const WaitCondition &) = delete;

    /// Sleeps up to `ms` milliseconds. True when woken by wakeOne(); false on a
    /// wakeOneFalse() or a timeout.
    bool wait(unsigned long ms);
    /// Wakes one waiter, whose wait() returns true.
    void wakeOne();
    /// Wakes one waiter, whose wait() returns false.
    void wakeOneFalse();

private:
    QMutex mMutex;
    QWaitCondition mCondition;
    std::atomic_bool mFlag;
};

} // namespace Veloran
