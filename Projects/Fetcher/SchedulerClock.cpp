#include "SchedulerClock.h"

#include <chrono>

namespace Veloran {

namespace {
class SteadyClock : public SchedulerClock
{
public:
    qint64 nowMs() const override
    {
        using namespace std::chrono;
        return duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count();
    }
};
} // namespace

const SchedulerClock &SchedulerClock::steady()
{
    static const SteadyClock kClock;
    return kClock;
}

} // namespace Veloran
