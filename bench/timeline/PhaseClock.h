#pragma once

#include <QString>
#include <QTextStream>
#include <QVector>

// Wall and process CPU time spent in named phases, summed over many calls. A
// measurement runs from measure() to the end of the returned scope.
class PhaseClock
{
public:
    class Scope
    {
    public:
        Scope(PhaseClock &clock, int phase);
        ~Scope();
        Scope(const Scope &) = delete;
        Scope &operator=(const Scope &) = delete;

    private:
        PhaseClock &mClock;
        int mPhase;
        qint64 mWallStartNs;
        qint64 mCpuStartNs;
    };

    explicit PhaseClock(const QStringList &phases);
    Scope measure(int phase) { return Scope(*this, phase); }
    // One line per phase: name, calls, wall ms, CPU ms and the share of all CPU time.
    // Phases named in parentheses are shown for comparison and left out of the shares.
    void print(QTextStream &out) const;

private:
    struct Phase
    {
        QString name;
        int calls = 0;
        qint64 wallNs = 0;
        qint64 cpuNs = 0;
    };
    QVector<Phase> mPhases;
};
