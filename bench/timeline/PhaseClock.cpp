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

PhaseClock::Stamp PhaseClock::now()
{
    return {nowNs(CLOCK_MONOTONIC), nowNs(CLOCK_PROCESS_CPUTIME_ID)};
}

void PhaseClock::add(int phase, const Stamp &start)
{
    const Stamp end = now();
    Phase &entry = mPhases[phase];
    entry.wallNs += end.wallNs - start.wallNs;
    entry.cpuNs += end.cpuNs - start.cpuNs;
    ++entry.calls;
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
