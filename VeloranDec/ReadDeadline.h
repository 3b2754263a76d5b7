#pragma once

#include "FFmpegJoint.h"

#include <QDeadlineTimer>

namespace Veloran {

/// A time limit for one blocking FFmpeg call on a format context (open, probe, read,
/// seek), checked by FFmpeg through the context's interrupt callback between reads.
/// A source that trickles in forever (a pipe, a stalled network share) so ends the
/// call with AVERROR_EXIT instead of holding the thread. No limit while disarmed.
/// Not locked: armed, checked and disarmed on the thread making the FFmpeg calls.
class ReadDeadline
{
public:
    /// Arms the deadline for the lifetime of the scope. Scopes nest: an inner one
    /// never extends the limit of an outer one, and the outer limit comes back
    /// when the inner scope ends.
    class Scope
    {
    public:
        /// Limits `deadline` to `ms` milliseconds from now (or less, when nested).
        Scope(ReadDeadline &deadline, long long ms);
        /// Puts back the limit that held before this scope.
        ~Scope();
        Scope(const Scope &) = delete;
        Scope &operator=(const Scope &) = delete;

    private:
        ReadDeadline &mDeadline;
        QDeadlineTimer mOuter;
    };

    /// True once the armed limit has passed; never while disarmed.
    bool expired() const;
    /// For AVFormatContext::interrupt_callback; valid while this object lives.
    AVIOInterruptCB interruptCallback();

private:
    static int isInterrupted(void *opaque);

    QDeadlineTimer mTimer {QDeadlineTimer::Forever};
};

} // namespace Veloran
