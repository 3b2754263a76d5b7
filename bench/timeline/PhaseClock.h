#pragma once

#include <QString>
#include <QTextStream>
#include <QVector>

// Wall and process CPU time spent in named phases, summed over many calls.
class PhaseClock
{
public:
    explicit PhaseClock(const QStringList &phases);
    // Runs `work` as one call of `phase` and returns what it returns.
    template <typename Work>
    auto measure(int phase, Work work)
    {
        const Stamp start = now();
        struct Stop
        {
            PhaseClock &clock;
            int phase;
            Stamp start;
            ~Stop() { clock.add(phase, start); }
        } stop {*this, phase, start};
        return work();
    }
    // One line per phase: name, calls, wall ms, CPU ms and the share of all CPU time.
    // Phases named in parentheses are shown for comparison and left out of the shares.
    void print(QTextStream &out) const;

private:
    struct Stamp
    {
        qint64 wallNs;
        qint64 cpuNs;
    };
    static Stamp now();
    void add(int phase, const Stamp &start);

    struct Phase
    {
        QString name;
        int calls = 0;
        qint64 wallNs = 0;
        qint64 cpuNs = 0;
    };
    QVector<Phase> mPhases;
};
