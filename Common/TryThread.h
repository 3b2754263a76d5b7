#pragma once

#include "vrfetcher_export.h"

#include <QThread>

#include <atomic>

namespace Veloran {

// A thread whose body (tryRun) may throw: the exception is caught in the thread,
// reported through exceptionThrowOut() and goes no further.
class VRFETCHER_EXPORT TryThread : public QThread
{
    Q_OBJECT
public:
    using QThread::QThread;

    bool isFinishedSuccess() const { return finishedSuccess; }

Q_SIGNALS:
    void exceptionThrowOut();

protected:
    void run() final;
    virtual void tryRun() = 0;

    // Written by the thread, read by others: atomic so the read needs no lock.
    std::atomic_bool finishedSuccess{false};
};

} // namespace Veloran
