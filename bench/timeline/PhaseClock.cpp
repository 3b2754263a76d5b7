#include "PhaseClock.h"

#include <ctime>

namespace {

qint64 nowNs(clockid_t clock)
{
    timespec ts {};
    clock_gettime(clock, &ts);
    return qint64(ts.tv_sec) * 1000000000 + ts.tv_nsec;
}

} // namespace

PhaseClock::Scope::Scope(PhaseClock &clock, int phase)
    : mClock(clock)
    , mPhase(phase)
    , mWallStartNs(nowNs(CLOCK_MONOTONIC))
    , mCpuStartNs(nowNs(CLOCK_PROCESS_CPUTIME_ID))
{
}

PhaseClock::Scope::~Scope()
{
    Phase &phase = mClock.mPhases[mPhase];
    phase.wallNs += nowNs(CLOCK_MONOTONIC) - mWallStartNs;
    phase.cpuNs += nowNs(CLOCK_PROCESS_CPUTIME_ID) - mCpuStartNs;
    ++phase.calls;
}

PhaseClock::PhaseClock(const QStringList &phases)
{
    for (const QString &name : phases)
        mPhases.append(Phase {name});
}

void PhaseClock::print(QTextStream &out) const
{
    qint64 totalCpuNs = 0;
    for (const Phase &phase : mPhases)
        totalCpuNs += phase.name.startsWith(QLatin1Char('(')) ? 0 : phase.cpuNs;
    for (const Phase &phase : mPhases) {
        out << "phase=" << phase.name << " calls=" << phase.calls << " wall_ms=" << QString::number(phase.wallNs / 1e6, 'f', 1)
            << " cpu_ms=" << QString::number(phase.cpuNs / 1e6, 'f', 1) << " cpu_share="
            << QString::number(totalCpuNs > 0 && !phase.name.startsWith(QLatin1Char('(')) ? 100.0 * phase.cpuNs / totalCpuNs : 0.0, 'f', 1) << "%\n";
    }
    out.flush();
}
