#pragma once

#include <QtGlobal>

namespace Veloran {

// The time the picker manager schedules by: milliseconds on a clock that never goes
// back. The manager runs on the steady clock; a test hands it a clock of its own.
class SchedulerClock
{
public:
    virtual ~SchedulerClock() = default;
    virtual qint64 nowMs() const = 0;

    // The process-wide monotonic clock.
    static const SchedulerClock &steady();
};

} // namespace Veloran
