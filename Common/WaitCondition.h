#pragma once

#include "vrfetcher_export.h"

#include <QMutex>
#include <QWaitCondition>

#include <atomic>

namespace Veloran {

// A wait that tells its waiter why it woke: true after wakeOne(), false after
// wakeOneFalse() or a timeout. Wakes are not counted: one that comes while nobody
// waits is lost, and the next wait() sleeps until the next wake or its timeout.
class VRFETCHER_EXPORT WaitCondition
{
public:
    explicit WaitCondition(bool flag = true);
    ~WaitCondition();

    WaitCondition(const WaitCondition &) = delete;
    WaitCondition &operator=(const WaitCondition &) = delete;

    bool wait(unsigned long ms);
    void wakeOne();
    void wakeOneFalse();

private:
    QMutex mMutex;
    QWaitCondition mCondition;
    std::atomic_bool mFlag;
};

} // namespace Veloran
