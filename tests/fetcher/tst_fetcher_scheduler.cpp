#include "PickerLog.h"
#include "TestMedia.h"

#include "Projects/Fetcher/AVFetcher.h"
#include "Projects/Fetcher/AVPickerManager.h"

#include <QFile>
#include <QtTest>

#include <thread>

using namespace Veloran;

namespace {

constexpr int kLongWaitMs = 60000;

// Ids far above what the fetchers hand out in this process.
qint64 gsTestIds = 1000000;

VideoThumbRequest thumb(const QString &file)
{
    VideoThumbRequest request;
    request.id = ++gsTestIds;
    request.filePath = file;
    request.width = 32;
    return request;
}

QList<QList<qint64>> startedIds(const QList<PickerLog::Start> &starts)
{
    QList<QList<qint64>> ids;
    for (const PickerLog::Start &start : starts)
        ids.append(start.ids);
    return ids;
}

} // namespace

class TstFetcherScheduler : public QObject
{
    Q_OBJECT
private:
    AVPickerManager *manager = AVPickerManager::sharedInstance();
    QString scratch = TestMedia::scratchDir(QStringLiteral("fetch-scheduler"));

    // A private copy of the shared sample: a distinct file, so a distinct picker.
    QString sampleCopy(const QString &name)
    {
        const QString path = scratch + QLatin1Char('/') + name;
        QFile::copy(TestMedia::path("sample.mp4"), path);
        return path;
    }
    QString missing(const QString &name) { return scratch + QStringLiteral("/missing-") + name; }

private Q_SLOTS:
    void init()
    {
        // Every test starts from an idle service.
        manager->stop();
        QTRY_COMPARE_WITH_TIMEOUT(manager->runningPickerCount(), 0, kLongWaitMs);
        QCOMPARE(manager->maxConcurrent(), int((std::thread::hardware_concurrency() + 1) / 2));
    }

    // First in the process: until the first thumbnails, one audio scan at a time.
    void oneAudioScanAtATimeBeforeTheFirstThumbnails()
    {
        QSharedPointer<IAVFetcher> fetcher = createAVFetcher();
        QSignalSpy samples(fetcher.data(), &IAVFetcher::audioSample);
        PickerLog log(manager);
        QList<qint64> ids;
        for (int i = 0; i < 3; ++i)
            ids << fetcher->fetchAudio(TestMedia::path("sine.wav"), 0, 2000, 50, 1, false);
        QTRY_COMPARE_WITH_TIMEOUT(samples.size(), 3, kLongWaitMs);
        QCOMPARE(log.maxAudioRunning(), 1);
        QList<qint64> answered;
        for (const QList<QVariant> &signal : qAsConst(samples))
            answered << signal.at(0).toLongLong();
        QCOMPARE(answered, ids); // one slot at a time: in queue order

        // Once thumbnails were asked for, audio is bounded by the free-slot rule only.
        QSignalSpy thumbs(fetcher.data(), &IAVFetcher::videoThumb);
        samples.clear();
        for (int i = 0; i < 4; ++i)
            fetcher->fetchAudio(TestMedia::path("sine.wav"), 0, 2000, 100, 2, false);
        fetcher->fetchVideo(TestMedia::path("sample.mp4"), {0, 1000, 2000}, 32, true, false);
        QTRY_COMPARE_WITH_TIMEOUT(samples.size(), 8, kLongWaitMs);
        QTRY_COMPARE_WITH_TIMEOUT(thumbs.size(), 3, kLongWaitMs);
        const int slotCount = manager->maxConcurrent();
        QVERIFY(log.maxRunning() <= slotCount);
        QVERIFY(log.maxAudioRunning() <= (slotCount == 1 ? 1 : slotCount - 1));
        QCOMPARE(log.startCount(), 3 + 5);
    }

    void consecutiveRequestsForOneFileShareARun()
    {
        PickerLog log(manager);
        const QList<VideoThumbRequest> requests {thumb(missing("f1")), thumb(missing("f1")), thumb(missing("f2")),
                                                 thumb(missing("f1"))};
        manager->requestVideoList(QList<VideoThumbRequest>(requests), false);
        QTRY_COMPARE_WITH_TIMEOUT(log.startCount(), 3, kLongWaitMs);
        QCOMPARE(startedIds(log.starts()),
                 (QList<QList<qint64>> {{requests[0].id, requests[1].id}, {requests[2].id}, {requests[3].id}}));
        QCOMPARE(log.starts().at(2).file, missing("f1"));
    }

    void priorityListGoesToTheHeadInItsOwnOrder()
    {
        PickerLog log(manager);
        GateHold gate;
        // Fill every slot with a picker that waits at the gate.
        const int slotCount = manager->maxConcurrent();
        for (int i = 0; i < slotCount; ++i)
            manager->requestVideoList({thumb(sampleCopy(QStringLiteral("blocker-%1.mp4").arg(i)))}, false);
        QTRY_COMPARE_WITH_TIMEOUT(log.startCount(), slotCount, kLongWaitMs);

        const QList<VideoThumbRequest> normal {thumb(missing("y")), thumb(missing("y"))};
        manager->requestVideoList(QList<VideoThumbRequest>(normal), false);
        const QList<VideoThumbRequest> urgent {thumb(missing("z")), thumb(missing("w")), thumb(missing("z"))};
        manager->requestVideoList(QList<VideoThumbRequest>(urgent), true);
        // A single priority request goes before all of them.
        const VideoThumbRequest single = thumb(missing("q"));
        manager->requestVideo(single, true);
        gate.release();

        QTRY_COMPARE_WITH_TIMEOUT(log.startCount(), slotCount + 5, kLongWaitMs);
        QCOMPARE(startedIds(log.starts().mid(slotCount)),
                 (QList<QList<qint64>> {{single.id}, {urgent[0].id}, {urgent[1].id}, {urgent[2].id}, {normal[0].id, normal[1].id}}));
    }

    void stopInterruptsAndTheServiceResumes()
    {
        QSharedPointer<IAVFetcher> fetcher = createAVFetcher();
        QSignalSpy thumbs(fetcher.data(), &IAVFetcher::videoThumb);
        // Leave an idle picker in the cache first.
        const QString cachedFile = sampleCopy(QStringLiteral("stop-cached.mp4"));
        fetcher->fetchVideo(cachedFile, {0}, 32, true, false);
        QTRY_VERIFY_WITH_TIMEOUT(manager->cachedPickerFiles().contains(cachedFile), kLongWaitMs);
        QTRY_COMPARE_WITH_TIMEOUT(thumbs.size(), 1, kLongWaitMs);

        PickerLog log(manager);
        GateHold gate;
        QList<qint64> stopped;
        for (int i = 0; i < manager->maxConcurrent(); ++i)
            stopped << fetcher->fetchVideo(sampleCopy(QStringLiteral("stop-blocker-%1.mp4").arg(i)), {0, 200, 400}, 32, true, false);
        QTRY_COMPARE_WITH_TIMEOUT(log.startCount(), manager->maxConcurrent(), kLongWaitMs);
        stopped << fetcher->fetchVideo(TestMedia::path("sample.mp4"), {0, 100}, 32, true, false);
        stopped << fetcher->fetchAudio(TestMedia::path("sine.wav"), 0, 1000, 10, 1, false);
        thumbs.clear();

        // The cache is emptied at once; interrupted pickers leave without answering
        // and are not kept.
        fetcher->stop();
        QVERIFY(manager->cachedPickerFiles().isEmpty());
        QTRY_COMPARE_WITH_TIMEOUT(manager->runningPickerCount(), 0, kLongWaitMs);
        QVERIFY(manager->cachedPickerFiles().isEmpty());
        gate.release();

        QSignalSpy samples(fetcher.data(), &IAVFetcher::audioSample);
        const qint64 after = fetcher->fetchVideo(TestMedia::path("sample.mp4"), {120}, 32, true, false);
        const qint64 audioAfter = fetcher->fetchAudio(TestMedia::path("sine.wav"), 0, 1000, 10, 1, false);
        QTRY_VERIFY_WITH_TIMEOUT(!thumbs.isEmpty() && !samples.isEmpty(), kLongWaitMs);
        QCOMPARE(thumbs.size(), 1);
        QCOMPARE(thumbs.first().at(0).toLongLong(), after);
        QCOMPARE(samples.size(), 1);
        QCOMPARE(samples.first().at(0).toLongLong(), audioAfter);
        QVERIFY(!stopped.contains(after));
    }

    void cacheKeepsTheFiveNewestIdlePickers()
    {
        QSharedPointer<IAVFetcher> fetcher = createAVFetcher();
        QStringList files;
        for (int i = 1; i <= 7; ++i) {
            files << sampleCopy(QStringLiteral("cache-%1.mp4").arg(i));
            fetcher->fetchVideo(files.last(), {0}, 32, true, false);
            // One at a time, so the cache order is the order of the requests.
            QTRY_VERIFY_WITH_TIMEOUT(manager->cachedPickerFiles().contains(files.last()), kLongWaitMs);
        }
        // Each scheduling round trims the cache; an empty request list makes one.
        QTRY_VERIFY_WITH_TIMEOUT((manager->requestVideoList({}, false), manager->cachedPickerFiles() == files.mid(2)),
                                 kLongWaitMs);

        // A cached picker is reused for its file (and leaves the cache while it runs).
        PickerLog log(manager);
        QSignalSpy thumbs(fetcher.data(), &IAVFetcher::videoThumb);
        const qint64 reuse = fetcher->fetchVideo(files.last(), {40}, 32, true, false);
        QTRY_VERIFY_WITH_TIMEOUT(!thumbs.isEmpty() && thumbs.last().at(0).toLongLong() == reuse, kLongWaitMs);
        QTRY_COMPARE_WITH_TIMEOUT(manager->cachedPickerFiles().count(files.last()), 1, kLongWaitMs);
        QCOMPARE(manager->cachedPickerFiles().size(), 5);
        QCOMPARE(log.startCount(), 1);
    }
};

QTEST_GUILESS_MAIN(TstFetcherScheduler)
#include "tst_fetcher_scheduler.moc"
