#pragma once

#include "Projects/Fetcher/AVPickerManager.h"
#include "Projects/Fetcher/IAVFetcher.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QImage>
#include <QMap>
#include <QSignalSpy>
#include <QtTest>

// Makes one fetch request and takes every answer to it, told apart from other
// requests' by the id: after the expected ones it waits until the service has
// nothing queued or running and takes what came meanwhile too, so that an answer
// given twice is counted (and fails the helper's check). The waits are bounded:
// what did not come in time is missing.
namespace FetchAnswers {

constexpr int kWaitMs = 60000;

// The signals of `spy` carrying `id` (argument 0), until `enough` says so (or time
// is up) and the service is idle.
template <typename Enough>
QList<QList<QVariant>> collect(QSignalSpy &spy, qint64 id, Enough enough, int timeoutMs = kWaitMs)
{
    QList<QList<QVariant>> answers;
    const auto take = [&] {
        while (!spy.isEmpty()) {
            const QList<QVariant> signal = spy.takeFirst();
            if (signal.at(0).toLongLong() == id)
                answers.append(signal);
        }
    };
    QElapsedTimer waited;
    waited.start();
    while (!enough(answers) && waited.elapsed() < timeoutMs) {
        spy.wait(1000);
        take();
    }
    while (!Veloran::AVPickerManager::sharedInstance()->isIdle() && waited.elapsed() < timeoutMs)
        QTest::qWait(5);
    // Answers are emitted before their picker leaves the running list: all are posted now.
    QCoreApplication::sendPostedEvents();
    take();
    return answers;
}

// Stops the service and waits until no picker runs: no picker keeps a file open, and
// the next request starts from the file (or the preview cache).
inline void stopService()
{
    Veloran::AVPickerManager *manager = Veloran::AVPickerManager::sharedInstance();
    manager->stop();
    QTRY_COMPARE_WITH_TIMEOUT(manager->runningPickerCount(), 0, kWaitMs);
}

// Fails the current test unless `condition` holds.
inline void expect(bool condition, const char *what)
{
    QTest::qVerify(condition, what, "an answer missing or given twice", __FILE__, __LINE__);
}

// The thumbnails of one fetchVideo call (seek flag on), by time; each time answered once.
inline QMap<qint64, QImage> thumbnails(Veloran::IAVFetcher *fetcher, const QString &file, const QVector<qint64> &times,
                                       int width, int timeoutMs = kWaitMs)
{
    QSignalSpy spy(fetcher, &Veloran::IAVFetcher::videoThumb);
    const qint64 id = fetcher->fetchVideo(file, times, width, true, false);
    QMap<qint64, QImage> images;
    const auto answers = collect(spy, id, [&](const QList<QList<QVariant>> &a) { return a.size() >= times.size(); }, timeoutMs);
    for (const QList<QVariant> &signal : answers)
        images.insert(signal.at(2).toLongLong(), signal.at(4).value<QImage>());
    expect(answers.size() == times.size() && images.size() == times.size(), "one thumbnail per time");
    return images;
}

// The audioSample signals of one fetchAudio call, in order, until `count` pieces came
// or a failure answer (no values where some were wanted); pieces numbered 0, 1, ...
inline QList<QList<QVariant>> peaks(Veloran::IAVFetcher *fetcher, const QString &file, qint64 begin, qint64 length,
                                    int sampleCount, int count)
{
    QSignalSpy spy(fetcher, &Veloran::IAVFetcher::audioSample);
    const qint64 id = fetcher->fetchAudio(file, begin, length, sampleCount, count, false);
    const auto answers = collect(spy, id, [&](const QList<QList<QVariant>> &a) {
        return a.size() >= count
            || (!a.isEmpty() && a.last().at(4).toInt() > 0 && a.last().at(7).value<QList<uint8_t>>().isEmpty());
    });
    bool numbered = answers.size() <= qMax(count, 1);
    for (int i = 0; i < answers.size(); ++i)
        numbered = numbered && answers.at(i).at(6).toInt() == i;
    expect(numbered, "each piece once, in order");
    return answers;
}

// The values of all pieces, in order.
inline QList<uint8_t> values(const QList<QList<QVariant>> &pieces)
{
    QList<uint8_t> all;
    for (const QList<QVariant> &signal : pieces)
        all += signal.at(7).value<QList<uint8_t>>();
    return all;
}

// The success flag of one fetchFreezeFrame call: "true"/"false", or "no answer".
inline QString freezeFrame(Veloran::IAVFetcher *fetcher, const QString &file, const QString &savePath, qint64 time)
{
    QSignalSpy spy(fetcher, &Veloran::IAVFetcher::videoFreeze);
    const qint64 id = fetcher->fetchFreezeFrame(file, savePath, time, true, false);
    const auto answers = collect(spy, id, [](const QList<QList<QVariant>> &a) { return !a.isEmpty(); });
    expect(answers.size() <= 1, "one freeze frame");
    if (answers.isEmpty())
        return QStringLiteral("no answer");
    return answers.first().at(5).toBool() ? QStringLiteral("true") : QStringLiteral("false");
}

} // namespace FetchAnswers
