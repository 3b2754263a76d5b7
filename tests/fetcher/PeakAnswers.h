#pragma once

#include "Projects/Fetcher/IAVFetcher.h"

#include <QElapsedTimer>
#include <QSignalSpy>

// The audioSample answers of one request, in arrival order.
struct PeakAnswers
{
    QList<QList<QVariant>> signals_;

    QList<uint8_t> allValues() const
    {
        QList<uint8_t> values;
        for (const QList<QVariant> &signal : signals_)
            values += signal.at(7).value<QList<uint8_t>>();
        return values;
    }
};

// Makes the request through `call` and collects its answers until `pieces` came, a
// failure answer came (no values where some were wanted), or the time is up.
template <typename Call>
PeakAnswers collectPeaks(Veloran::IAVFetcher *fetcher, int pieces, Call call, int timeoutMs = 60000)
{
    QSignalSpy spy(fetcher, &Veloran::IAVFetcher::audioSample);
    const qint64 id = call();
    PeakAnswers answers;
    QElapsedTimer waited;
    waited.start();
    while (answers.signals_.size() < pieces && waited.elapsed() < timeoutMs) {
        if (spy.isEmpty() && !spy.wait(1000))
            continue;
        const QList<QVariant> signal = spy.takeFirst();
        if (signal.at(0).toLongLong() != id)
            continue;
        answers.signals_.append(signal);
        if (signal.at(4).toInt() > 0 && signal.at(7).value<QList<uint8_t>>().isEmpty())
            break;
    }
    return answers;
}
