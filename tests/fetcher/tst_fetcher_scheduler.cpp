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

VideoThumbRequest thumb(qint64 id, const QString &file, qint64 time = 0)
{
    VideoThumbRequest request;
    request.id = id;
    request.filePath = file;
    request.time = time;
    request.width = 32;
    return request;
}

QList<qint64> startedIds(const PickerLog::Event &event)
{
    return event.requestIds;
}

// Ids far above what the fetchers hand out in this process.
qint64 gsTestIds = 1000000;

} // namespace

class TstFetcherScheduler : public QObject
{
    Q_OBJECT
private:
    AVPickerManager *manager = nullptr;
    QString scratch;

    // A private copy of the shared sample: a distinct file, so a distinct picker.
    QString sampleCopy(const QString &name)
    {
        const QString path = scratch + QLatin1Char('/') + name;
        if (!QFile::exists(path))
            QFile::copy(TestMedia::path("sample.mp4"), path);
        return path;
    }

    QString missing(const QString &name) { return scratch + QStringLiteral("/missing-") + name; }

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(QFile::exists(TestMedia::path("sample.mp4")));
        QVERIFY(QFile::exists(TestMedia::path("sine.wav")));
        scratch = TestMedia::scratchDir(QStringLiteral("fetch-scheduler"));
        manager = AVPickerManager::sharedInstance();
        QVERIFY(manager->isRunning());
        QCOMPARE(manager->maxConcurrent(), static_cast<int>((std::thread::hardware_concurrency() + 1) / 2));
    }

    void init()
    {
        // Every test starts from an idle service.
        manager->stop();
        QTRY_COMPARE_WITH_TIMEOUT(manager->runningPickerCount(), 0, kLongWaitMs);
        QVERIFY(manager->cachedPickerFiles().isEmpty());
    }

    void consecutiveRequestsForOneFileShareARun()
    {
        PickerLog log(manager);
        const QString f1 = missing("f1.mp4");
        const QString f2 = missing("f2.mp4");
        const qint64 a = ++gsTestIds, b = ++gsTestIds, c = ++gsTestIds;
        manager->requestVideoList({thumb(a, f1), thumb(b, f2), thumb(c, f1)}, false);
        QTRY_COMPARE_WITH_TIMEOUT(log.startCount(), 3, kLongWaitMs);
        QList<PickerLog::Event> starts = log.starts();
        QCOMPARE(startedIds(starts[0]), QList<qint64>{a});
        QCOMPARE(startedIds(starts[1]), QList<qint64>{b});
        QCOMPARE(startedIds(starts[2]), QList<qint64>{c});
        QCOMPARE(starts[2].filePath, f1);

        const qint64 d = ++gsTestIds, e = ++gsTestIds, f = ++gsTestIds;
        manager->requestVideoList({thumb(d, f1), thumb(e, f1), thumb(f, f2)}, false);
        QTRY_COMPARE_WITH_TIMEOUT(log.startCount(), 5, kLongWaitMs);
        starts = log.starts();
        QCOMPARE(startedIds(starts[3]), (QList<qint64>{d, e}));
        QCOMPARE(startedIds(starts[4]), QList<qint64>{f});
        QVERIFY(!starts[3].audio);
    }

    void priorityListGoesToTheHeadInItsOwnOrder()
    {
        PickerLog log(manager);
        GateHold gate;
        // Fill every slot with a picker that waits at the gate.
        const int slotCount = manager->maxConcurrent();
        for (int i = 0; i < slotCount; ++i)
            manager->requestVideoList({thumb(++gsTestIds, sampleCopy(QStringLiteral("blocker-%1.mp4").arg(i)))}, false);
        QTRY_COMPARE_WITH_TIMEOUT(log.startCount(), slotCount, kLongWaitMs);

        const qint64 n1 = ++gsTestIds, n2 = ++gsTestIds;
        manager->requestVideoList({thumb(n1, missing("y.mp4")), thumb(n2, missing("y.mp4"))}, false);
        const qint64 p1 = ++gsTestIds, p2 = ++gsTestIds, p3 = ++gsTestIds;
        manager->requestVideoList({thumb(p1, missing("z.mp4")), thumb(p2, missing("w.mp4")),
                                   thumb(p3, missing("z.mp4"))},
                                  true);
        // A single priority request goes before all of them.
        const qint64 q = ++gsTestIds;
        manager->requestVideo(thumb(q, missing("q.mp4")), true);
        gate.release();

        QTRY_COMPARE_WITH_TIMEOUT(log.startCount(), slotCount + 5, kLongWaitMs);
        const QList<PickerLog::Event> starts = log.starts().mid(slotCount);
        QCOMPARE(startedIds(starts[0]), QList<qint64>{q});
        QCOMPARE(startedIds(starts[1]), QList<qint64>{p1});
        QCOMPARE(startedIds(starts[2]), QList<qint64>{p2});
        QCOMPARE(startedIds(starts[3]), QList<qint64>{p3});
        QCOMPARE(startedIds(starts[4]), (QList<qint64>{n1, n2}));
    }

    void stopInterruptsAndTheServiceResumes()
    {
        QSharedPointer<IAVFetcher> fetcher = createAVFetcher();
        QSignalSpy thumbs(fetcher.data(), &IAVFetcher::videoThumb);

        // Leave an idle picker in the cache first.
        const QString cachedFile = sampleCopy(QStringLiteral("stop-cached.mp4"));
        const qint64 warm = fetcher->fetchVideo(cachedFile, {0}, 32, true, false);
        QTRY_VERIFY_WITH_TIMEOUT(manager->cachedPickerFiles().contains(cachedFile), kLongWaitMs);
        QTRY_COMPARE_WITH_TIMEOUT(thumbs.size(), 1, kLongWaitMs);
        QCOMPARE(thumbs.first().at(0).toLongLong(), warm);

        PickerLog log(manager);
        GateHold gate;
        QList<qint64> stopped;
        QStringList blockers;
        for (int i = 0; i < manager->maxConcurrent(); ++i) {
            blockers << sampleCopy(QStringLiteral("stop-blocker-%1.mp4").arg(i));
            stopped << fetcher->fetchVideo(blockers.last(), {0, 200, 400}, 32, true, false);
        }
        QTRY_COMPARE_WITH_TIMEOUT(log.startCount(), manager->maxConcurrent(), kLongWaitMs);
        stopped << fetcher->fetchVideo(TestMedia::path("sample.mp4"), {0, 100}, 32, true, false);
        stopped << fetcher->fetchAudio(TestMedia::path("sine.wav"), 0, 1000, 10, 1, false);

        fetcher->stop();
        QVERIFY(manager->cachedPickerFiles().isEmpty());
        // Interrupted pickers leave without answering and are not kept.
        QTRY_COMPARE_WITH_TIMEOUT(manager->runningPickerCount(), 0, kLongWaitMs);
        for (const QString &blocker : qAsConst(blockers))
            QVERIFY(!manager->cachedPickerFiles().contains(blocker));
        gate.release();

        const qint64 after = fetcher->fetchVideo(TestMedia::path("sample.mp4"), {120}, 32, true, false);
        QTRY_VERIFY_WITH_TIMEOUT(thumbs.last().at(0).toLongLong() == after, kLongWaitMs);
        QSignalSpy samples(fetcher.data(), &IAVFetcher::audioSample);
        const qint64 audioAfter = fetcher->fetchAudio(TestMedia::path("sine.wav"), 0, 1000, 10, 1, false);
        QVERIFY(samples.wait(kLongWaitMs));
        QCOMPARE(samples.last().at(0).toLongLong(), audioAfter);
        for (const QList<QVariant> &signal : qAsConst(thumbs))
            QVERIFY2(!stopped.contains(signal.at(0).toLongLong()), "a stopped request was answered");
        QCOMPARE(thumbs.size(), 2);
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

    void audioLeavesASlotForThumbnails()
    {
        QSharedPointer<IAVFetcher> fetcher = createAVFetcher();
        QSignalSpy samples(fetcher.data(), &IAVFetcher::audioSample);
        QSignalSpy thumbs(fetcher.data(), &IAVFetcher::videoThumb);
        PickerLog log(manager);
        for (int i = 0; i < 4; ++i)
            fetcher->fetchAudio(TestMedia::path("sine.wav"), 0, 2000, 100, 2, false);
        fetcher->fetchVideo(TestMedia::path("sample.mp4"), {0, 1000, 2000}, 32, true, false);
        QTRY_COMPARE_WITH_TIMEOUT(samples.size(), 8, kLongWaitMs);
        QTRY_COMPARE_WITH_TIMEOUT(thumbs.size(), 3, kLongWaitMs);

        const int slotCount = manager->maxConcurrent();
        QVERIFY(log.maxRunning() <= slotCount);
        QVERIFY(log.maxAudioRunning() <= (slotCount == 1 ? 1 : slotCount - 1));
        QCOMPARE(log.startCount(), 5);
    }
};

QTEST_GUILESS_MAIN(TstFetcherScheduler)
#include "tst_fetcher_scheduler.moc"
