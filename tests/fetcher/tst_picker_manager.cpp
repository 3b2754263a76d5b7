#include "LogCapture.h"
#include "PickerLog.h"
#include "TestMedia.h"

#include "Projects/Fetcher/AVPickerManager.h"
#include "Projects/Fetcher/SchedulerClock.h"
#include "Projects/Fetcher/SchedulerWake.h"

#include <QFile>
#include <QtTest>

#include <future>
#include <mutex>
#include <thread>

using namespace Veloran;

namespace {

// Time that moves only when the test says so: what the scheduler does at a given
// time no longer depends on how fast the machine is.
class ManualClock : public SchedulerClock
{
public:
    qint64 nowMs() const override { return mNow.load(); }
    void set(qint64 ms) { mNow.store(ms); }

private:
    std::atomic<qint64> mNow{0};
};

// A clock at 0 that, the first time it is read, wakes the given sleeper from another
// thread and lets that waker run for a while before answering: the wake comes while
// the sleeper reads the clock, after its look at the wake and before its wait.
class WakingClock : public SchedulerClock
{
public:
    void wakeWhileRead(SchedulerWake *wake) { mWake = wake; }
    qint64 nowMs() const override
    {
        if (mWake && !mWaker.valid()) {
            mWaker = std::async(std::launch::async, [this] { mWake->wake(); });
            // A waker that takes the sleeper's lock waits here until the sleep begins.
            mWaker.wait_for(std::chrono::milliseconds(200));
        }
        return 0;
    }

private:
    SchedulerWake *mWake = nullptr;
    mutable std::future<void> mWaker;
};

// Keeps every thread of a pool busy until released, so that pickers started on it
// wait in its queue.
class PoolBlock
{
public:
    explicit PoolBlock(QThreadPool &pool)
    {
        const std::shared_future<void> open = mOpen.get_future().share();
        for (int i = 0; i < pool.maxThreadCount(); ++i)
            pool.start([open] { open.wait(); });
    }
    ~PoolBlock() { release(); }
    void release()
    {
        if (!mReleased.exchange(true))
            mOpen.set_value();
    }

private:
    std::promise<void> mOpen;
    std::atomic_bool mReleased{false};
};

// A manager of the test's own, on the test's clock and pool, with every answer it
// gives recorded as "id/time" (thumbnails) or "id/piece" (peaks), in order.
struct Service
{
    Service(int slotCount, int poolThreads)
        : manager(&clock, (pool.setMaxThreadCount(poolThreads), &pool), slotCount)
    {
        QObject::connect(&manager, &AVPickerManager::pickedThumb, &manager,
                         [this](VideoThumbRequest request, QImage) { record(request.id, request.time); }, Qt::DirectConnection);
        QObject::connect(&manager, &AVPickerManager::pickedSample, &manager,
                         [this](AudioSampleRequest request, QList<uint8_t>, int piece) { record(request.id, piece); },
                         Qt::DirectConnection);
        manager.start();
    }
    void record(qint64 id, qint64 part)
    {
        std::lock_guard<std::mutex> locker(mutex);
        answers.append(QStringLiteral("%1/%2").arg(id).arg(part));
    }
    QStringList answered()
    {
        std::lock_guard<std::mutex> locker(mutex);
        return answers;
    }
    void setClock(qint64 ms)
    {
        clock.set(ms);
        manager.clockChanged();
    }

    ManualClock clock;
    QThreadPool pool;
    AVPickerManager manager;
    std::mutex mutex;
    QStringList answers;
};

qint64 gsIds = 0;

VideoThumbRequest thumb(const QString &file)
{
    VideoThumbRequest request;
    request.id = ++gsIds;
    request.filePath = file;
    request.width = 32;
    return request;
}

QString missing(int n)
{
    return QStringLiteral("/nonexistent/picker-manager-%1.mp4").arg(n);
}

QList<QList<qint64>> startedIds(const PickerLog &log)
{
    QList<QList<qint64>> ids;
    for (const PickerLog::Start &start : log.starts())
        ids.append(start.ids);
    return ids;
}

constexpr int kWaitMs = 60000;

} // namespace

// The picker manager alone, on a clock and a pool of the test's own.
class TstPickerManager : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    // A wake that comes before the sleep, or while the sleeper is between its look at
    // the wake and its wait, is kept; a delayed wake is due at its time on the clock.
    void theSchedulerKeepsEveryWake()
    {
        ManualClock clock;
        SchedulerWake wake(clock);
        wake.wake();
        auto slept = std::async(std::launch::async, [&] { wake.sleepUntil(1); });
        const bool kept = slept.wait_for(std::chrono::seconds(30)) == std::future_status::ready;
        clock.set(1); // lets a lost wake end its sleep
        wake.recheck();
        QVERIFY(kept);

        WakingClock wakingClock;
        SchedulerWake wokenInTheWindow(wakingClock);
        wakingClock.wakeWhileRead(&wokenInTheWindow);
        // A lost wake would sleep the whole 40 s.
        slept = std::async(std::launch::async, [&] { wokenInTheWindow.sleepUntil(40000); });
        QVERIFY(slept.wait_for(std::chrono::seconds(30)) == std::future_status::ready);

        wake.wakeAfter(100);
        slept = std::async(std::launch::async, [&] { wake.sleepUntil(1000); });
        clock.set(100 + 1 - 2);
        wake.recheck();
        QVERIFY(slept.wait_for(std::chrono::milliseconds(200)) == std::future_status::timeout);
        clock.set(101);
        wake.recheck();
        QVERIFY(slept.wait_for(std::chrono::seconds(30)) == std::future_status::ready);
    }

    // Single requests wake the scheduler once, 100 ms after the last, also when they
    // came from a thread that ended at once and never ran an event loop.
    void singleRequestsAreDebounced()
    {
        Service service(2, 2);
        PickerLog log(&service.manager);
        const VideoThumbRequest first = thumb(missing(1));
        const VideoThumbRequest second = thumb(missing(1));
        std::thread([&] { service.manager.requestVideo(first, false); }).join();
        service.setClock(60);
        service.manager.requestVideo(second, false);
        service.setClock(159);
        QTest::qWait(300);
        QCOMPARE(log.startCount(), 0);
        service.setClock(160);
        QTRY_COMPARE_WITH_TIMEOUT(service.answered().size(), 2, kWaitMs);
        QCOMPARE(startedIds(log), (QList<QList<qint64>>{{first.id, second.id}}));
    }

    // Only consecutive requests for one file share a run; priority requests go before
    // the waiting ones, a list in its own order.
    void queueOrderAndBatches()
    {
        Service service(1, 1);
        PickerLog log(&service.manager);
        PoolBlock block(service.pool);
        const QList<VideoThumbRequest> mixed{thumb(missing(1)), thumb(missing(1)), thumb(missing(2)), thumb(missing(1))};
        service.manager.requestVideoList(QList<VideoThumbRequest>(mixed), false);
        QTRY_COMPARE_WITH_TIMEOUT(log.startCount(), 1, kWaitMs); // holds the only slot
        const QList<VideoThumbRequest> normal{thumb(missing(3)), thumb(missing(3))};
        service.manager.requestVideoList(QList<VideoThumbRequest>(normal), false);
        const QList<VideoThumbRequest> urgent{thumb(missing(4)), thumb(missing(5)), thumb(missing(4))};
        service.manager.requestVideoList(QList<VideoThumbRequest>(urgent), true);
        const VideoThumbRequest single = thumb(missing(6));
        service.manager.requestVideo(single, true);
        block.release();
        QTRY_COMPARE_WITH_TIMEOUT(log.startCount(), 8, kWaitMs);
        QCOMPARE(startedIds(log),
                 (QList<QList<qint64>>{{mixed[0].id, mixed[1].id}, {single.id}, {urgent[0].id}, {urgent[1].id},
                                       {urgent[2].id}, {mixed[2].id}, {mixed[3].id}, {normal[0].id, normal[1].id}}));
    }

    // Until the first thumbnails, one audio scan at a time; after them, audio is
    // bounded by the slots only, and never takes the last one.
    void audioWaitsItsTurn()
    {
        Service service(3, 3);
        PickerLog log(&service.manager);
        PoolBlock block(service.pool);
        AudioSampleRequest scan;
        scan.filePath = scan.sourcePath = TestMedia::path("sine.wav");
        scan.length = 1000;
        scan.sampleCount = scan.count = 1;
        for (int i = 0; i < 3; ++i)
            service.manager.requestAudio((scan.id = ++gsIds, scan), false);
        QTRY_COMPARE_WITH_TIMEOUT(log.startCount(), 1, kWaitMs);
        QTest::qWait(200); // the pool is blocked: nothing would change but the rule
        QCOMPARE(log.startCount(), 1);
        service.manager.requestVideoList({thumb(missing(1))}, false);
        QTRY_COMPARE_WITH_TIMEOUT(log.startCount(), 2, kWaitMs);
        QTest::qWait(200);
        QCOMPARE(log.startCount(), 2);
        block.release();
        QTRY_COMPARE_WITH_TIMEOUT(service.answered().size(), 4, kWaitMs);
        QCOMPARE(log.startCount(), 4);
    }

    // Pickers waiting in the pool are taken back: their requests and the queued ones
    // go unanswered. A picker the scheduler starts right after the take-back (held
    // there by the observer, which runs first thing after it) stays in the pool and
    // is answered exactly once; no slot is lost.
    void clearFetchingTakesBackUnstartedPickers()
    {
        Service service(3, 1);
        PoolBlock block(service.pool);
        for (int i = 0; i < 5; ++i)
            service.manager.requestVideoList({thumb(missing(i))}, false);
        QTRY_COMPARE_WITH_TIMEOUT(service.manager.runningPickerCount(), 3, kWaitMs);
        const VideoThumbRequest after = thumb(missing(9));
        const std::thread::id clearer = std::this_thread::get_id();
        bool requested = false;
        service.manager.setPickerObserver([&](const AVPickerManager::PickerEvent &) {
            if (std::this_thread::get_id() != clearer || requested)
                return;
            requested = true;
            QCOMPARE(service.manager.runningPickerCount(), 0);
            service.manager.requestVideoList({after}, false);
            // Counted under the lock that also queues it in the pool.
            QTRY_COMPARE_WITH_TIMEOUT(service.manager.runningPickerCount(), 1, kWaitMs);
        });
        service.manager.clearRequests();
        service.manager.setPickerObserver({});
        QVERIFY(requested);
        block.release();
        service.pool.waitForDone();
        QCOMPARE(service.manager.runningPickerCount(), 0);
        QCOMPARE(service.answered(), QStringList{QStringLiteral("%1/0").arg(after.id)});
        QVERIFY(service.manager.isIdle());
    }

    // Clears racing the scheduler's starts: every picker it started is either taken
    // back or still waiting in the pool, never dropped from the pool while counted
    // as running (which would hold its slot for good).
    void clearRacingTheSchedulerLosesNoSlot()
    {
        Service service(4, 1);
        PoolBlock block(service.pool);
        const int rounds = qEnvironmentVariableIsSet("VR_STRESS_SMALL") ? 1000 : 5000;
        std::atomic_bool requesting{true};
        std::thread clearing([&] {
            while (requesting)
                service.manager.clearRequests();
        });
        for (int i = 0; i < rounds; ++i)
            service.manager.requestVideoList({thumb(missing(i % 6))}, false);
        requesting = false;
        clearing.join();
        QTRY_COMPARE_WITH_TIMEOUT((service.manager.clearRequests(), service.manager.runningPickerCount()), 0, kWaitMs);
        QVERIFY(service.answered().isEmpty());
    }

    // At most five idle pickers while pickers finish; all dropped once 10 s passed
    // on the clock without one. A cached picker serves its file again.
    void idlePickersAreCappedAndDroppedAfterTenSeconds()
    {
        Service service(1, 1);
        const QString scratch = TestMedia::scratchDir(QStringLiteral("picker-manager"));
        QStringList files;
        for (int i = 0; i < 7; ++i) {
            files << scratch + QStringLiteral("/cache-%1.mp4").arg(i);
            QVERIFY(QFile::copy(TestMedia::path("sample.mp4"), files.last()));
            service.manager.requestVideoList({thumb(files.last())}, false);
            QTRY_VERIFY_WITH_TIMEOUT(service.manager.cachedPickerFiles().contains(files.last()), kWaitMs);
        }
        QTRY_COMPARE_WITH_TIMEOUT(service.manager.cachedPickerFiles(), files.mid(2), kWaitMs);
        service.manager.requestVideoList({thumb(files.last())}, false);
        QTRY_COMPARE_WITH_TIMEOUT(service.answered().size(), 8, kWaitMs);
        QTRY_COMPARE_WITH_TIMEOUT(service.manager.cachedPickerFiles(), files.mid(2), kWaitMs);

        service.setClock(10000);
        QTest::qWait(300);
        QCOMPARE(service.manager.cachedPickerFiles().size(), 5);
        service.setClock(10001);
        QTRY_VERIFY_WITH_TIMEOUT(service.manager.cachedPickerFiles().isEmpty(), kWaitMs);
    }

    // A stop during a long waveform: the scan ends after the piece it was delivering,
    // the interrupted picker is not kept, and later requests are served.
    void stopEndsAnAudioScanMidWay()
    {
        Service service(2, 2);
        QObject::connect(&service.manager, &AVPickerManager::pickedSample, &service.manager,
                         [&](AudioSampleRequest, QList<uint8_t>, int piece) {
                             if (piece == 0)
                                 service.manager.stop();
                         }, Qt::DirectConnection);
        LogCapture capture;
        AudioSampleRequest request;
        request.id = ++gsIds;
        request.filePath = request.sourcePath = TestMedia::path("sine.wav");
        request.length = 2000;
        request.sampleCount = 100;
        request.count = 10;
        service.manager.requestAudio(request, false);
        QTRY_VERIFY_WITH_TIMEOUT(!service.answered().isEmpty() && service.manager.isIdle(), kWaitMs);
        QCOMPARE(service.answered(), QStringList{QStringLiteral("%1/0").arg(request.id)});
        QVERIFY(capture.hasRecord("[fetch samples_v2] aborted.2"));
        QVERIFY(!capture.hasRecordStartingWith("[fetch samples_v2] finished total cost: "));
        QVERIFY(service.manager.cachedPickerFiles().isEmpty());

        // The scheduler goes on serving.
        request.id = ++gsIds;
        request.count = 1;
        service.manager.requestAudio(request, false);
        QTRY_COMPARE_WITH_TIMEOUT(service.answered().size(), 2, kWaitMs);
    }
};

QTEST_GUILESS_MAIN(TstPickerManager)
#include "tst_picker_manager.moc"
