#pragma once

#include "vrfetcher_export.h"

#include <QThread>

#include <atomic>

namespace Veloran {

/// A thread whose body (tryRun) may throw: the exception is caught in the thread,
/// reported through exceptionThrowOut() and goes no further.
class VRFETCHER_EXPORT TryThread : public QThread
{
    Q_OBJECT
public:
    using QThread::QThread;

    /// True once tryRun() returned normally; false before and after an exception.
    bool isFinishedSuccess() const { return finishedSuccess; }

Q_SIGNALS:
    /// Emitted from the thread itself, once, when tryRun() throws.
    void exceptionThrowOut();

protected:
    /// Runs tryRun() inside a catch-all and records the outcome.
    void run() final;
    /// The thread's body, implemented by subclasses instead of run().
    virtual void tryRun() = 0;

    /// Outcome of the last run, as isFinishedSuccess() reports it.
    // Written by the thread, read by others: atomic so the read needs no lock.
    std::atomic_bool finishedSuccess{false};
};

} // namespace Veloran
