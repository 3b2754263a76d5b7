#include "LogCapture.h"

#include "Common/BasicObject.h"
#include "Common/ThreadDispatch.h"
#include "Common/TryThread.h"
#include "Common/WaitCondition.h"
#include "VeloranBaseEntry.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QProcess>
#include <QSemaphore>
#include <QThread>
#include <QtTest>

#include <atomic>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <vector>

using namespace Veloran;

namespace {

// Child-process modes of this binary, for checks that end the process.
const char *const kChildOtherThread = "--child-assert-own-thread-elsewhere";
const char *const kChildMainThread = "--child-assert-main-thread-elsewhere";

struct ThrowingThread : TryThread
{
    std::atomic_int throwWhat{0}; // 0: return normally, 1: a std::exception, 2: an int
    void tryRun() override
    {
        if (throwWhat == 1)
            throw std::runtime_error("decoder gave up");
        if (throwWhat == 2)
            throw 42;
    }
};

struct EventLoopThread
{
    EventLoopThread() { thread.start(); }
    ~EventLoopThread()
    {
        thread.quit();
        thread.wait();
    }
    QThread thread;
};

// What wait() gives a thread that waits on `condition` while `wake` is called until
// it answers (wakes before the waiter sleeps are lost); -1 when it never answers.
template <typename Wake>
int waitResult(WaitCondition &condition, Wake wake)
{
    std::atomic_int result{-1};
    std::thread waiter([&] { result = condition.wait(30000) ? 1 : 0; });
    QElapsedTimer timer;
    for (timer.start(); result.load() == -1 && timer.elapsed() < 20000; QThread::msleep(1))
        wake();
    waiter.join();
    return result.load();
}

} // namespace

class TstFoundationThreads : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void loggerTakesRecordsFromManyThreads()
    {
        LogCapture capture;
        std::vector<std::thread> workers;
        for (int t = 0; t < 6; ++t) {
            workers.emplace_back([t] {
                for (int i = 0; i < 300; ++i)
                    VR_LOG << "worker " << t << " line " << i;
            });
        }
        for (auto &worker : workers)
            worker.join();
        // Each thread's lines arrive whole and in the order written.
        const QStringList texts = capture.recordTexts();
        QCOMPARE(texts.size(), 6 * 300);
        QVector<int> next(6, 0);
        for (const QString &text : texts) {
            const QStringList parts = text.split(' ');
            QCOMPARE(parts.size(), 4);
            QCOMPARE(parts[3].toInt(), next[parts[1].toInt()]++);
        }
    }

    void workGateBoundsConcurrentWork()
    {
        VeloranBase *fromThread = nullptr;
        std::thread([&] { fromThread = VeloranBaseEntry(); }).join();
        QCOMPARE(fromThread, VeloranBaseEntry()); // one per process
        QCOMPARE(VeloranBaseEntry()->workGate()->size(), qMax(2, QThread::idealThreadCount()));

        WorkGate gate(2);
        QVERIFY(gate.tryAcquire(0) && gate.tryAcquire(10));
        QVERIFY(!gate.tryAcquire(30)); // full: the timed acquire gives up
        // A waiter gets the slot that another thread releases while it waits.
        std::atomic_bool acquired{false};
        std::thread waiter([&] { acquired = gate.tryAcquire(30000); });
        gate.release();
        waiter.join();
        QVERIFY(acquired.load());
        QCOMPARE(gate.available(), 0);
        WorkGate atLeastOne(0);
        QVERIFY(atLeastOne.tryAcquire(0));
        QVERIFY(!atLeastOne.tryAcquire(0));
    }

    void waitConditionTellsHowItWasWoken()
    {
        LogCapture capture;
        {
            WaitCondition condition(false); // the start value is overwritten by wait()
            QCOMPARE(waitResult(condition, [&] { condition.wakeOne(); }), 1);
            QCOMPARE(waitResult(condition, [&] { condition.wakeOneFalse(); }), 0);
            QCOMPARE(waitResult(condition, [&] { condition.wakeOne(); }), 1); // false was for that wake only
            condition.wakeOne(); // nobody waits: lost, so the next wait times out
            QCOMPARE(condition.wait(60), false);
            QVERIFY(capture.messages().isEmpty());
        }
        QCOMPARE(capture.messages(), QStringList{QStringLiteral("~WaitCondition()....")});
    }

    void tryThreadCatchesAndReportsExceptions()
    {
        ThrowingThread thread;
        QSignalSpy spy(&thread, &TryThread::exceptionThrowOut);
        QCOMPARE(thread.isFinishedSuccess(), false); // not run yet
        for (int what : {0, 1, 2, 0}) {
            thread.throwWhat = what;
            thread.start();
            QVERIFY(thread.wait(10000));
            QCOMPARE(thread.isFinishedSuccess(), what == 0); // the last run's outcome
        }
        QCOMPARE(spy.count(), 2); // once per exception, of any type
    }

    void dispatchRunsLaterOnTheTargetThreadAndNeverWaits()
    {
        EventLoopThread worker;
        std::mutex mutex;
        QStringList order;
        auto note = [&](const char *step) {
            std::lock_guard<std::mutex> lock(mutex);
            order.append(QString::fromLatin1(step) + (QThread::currentThread() == &worker.thread ? "@worker" : "@other"));
        };
        auto steps = [&] {
            std::lock_guard<std::mutex> lock(mutex);
            return order;
        };
        // From the target thread itself the function is deferred, not run inside the call.
        QSemaphore release;
        dispatchToThread(&worker.thread, [&] {
            note("outer start");
            dispatchToThread(QThread::currentThread(), [&] { note("inner"); });
            note("outer end");
            release.acquire();
        });
        QTRY_COMPARE_WITH_TIMEOUT(steps().size(), 2, 10000);
        // The worker's loop is blocked; handing it more work still returns at once.
        dispatchToThread(&worker.thread, [&] { note("second"); });
        QCOMPARE(steps().size(), 2);
        release.release();
        QTRY_COMPARE_WITH_TIMEOUT(steps().size(), 4, 10000);
        QCOMPARE(steps(), (QStringList{"outer start@worker", "outer end@worker", "inner@worker", "second@worker"}));
    }

    void dispatchToMainThreadRunsInTheMainLoop()
    {
        // Each dispatch uses a timer that deletes itself; the leak check sees it.
        std::atomic<QThread *> ranOn{nullptr};
        std::atomic_int runs{0};
        auto fn = [&] {
            ranOn = QThread::currentThread();
            ++runs;
        };
        dispatchToMainThread(fn);
        QCOMPARE(runs.load(), 0); // never inside the call, even from the main thread itself
        QTRY_COMPARE_WITH_TIMEOUT(runs.load(), 1, 10000);
        ranOn = nullptr;
        std::thread([&] { dispatchToMainThread(fn); }).join();
        QTRY_COMPARE_WITH_TIMEOUT(runs.load(), 2, 10000);
        QCOMPARE(ranOn.load(), QCoreApplication::instance()->thread());
    }

    void assertionsPassOnTheOwningThreadAndForDetachedObjects()
    {
        BasicObject object;
        object.assertOwnThread();
        object.assertMainThread();
        Veloran::assertOwnThread(nullptr);
        // An object with no thread at all may be used from anywhere.
        object.moveToThread(nullptr);
        std::thread([&] { object.assertOwnThread(); }).join();
        QVERIFY(object.thread() == nullptr);
    }

    void assertionsAbortOnTheWrongThread_data()
    {
        QTest::addColumn<QString>("mode");
        QTest::addColumn<QString>("message");
        QTest::newRow("own thread") << kChildOtherThread << QStringLiteral("assertOwnThread: Veloran::BasicObject 0x");
        QTest::newRow("main thread") << kChildMainThread << QStringLiteral("assertMainThread: called from thread 0x");
    }

    void assertionsAbortOnTheWrongThread()
    {
        QFETCH(QString, mode);
        QFETCH(QString, message);
        QProcess child;
        child.start(QCoreApplication::applicationFilePath(), {mode});
        QVERIFY(child.waitForFinished(60000));
        const QString errors = QString::fromLocal8Bit(child.readAllStandardError());
#ifdef VR_THREAD_CHECKS
        QCOMPARE(child.exitStatus(), QProcess::CrashExit);
        QVERIFY2(errors.contains(message), qPrintable(errors));
#else
        // Release builds check nothing.
        QCOMPARE(child.exitStatus(), QProcess::NormalExit);
        QVERIFY2(!errors.contains(message), qPrintable(errors));
#endif
    }
};

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    if (argc == 2 && (qstrcmp(argv[1], kChildOtherThread) == 0 || qstrcmp(argv[1], kChildMainThread) == 0)) {
        BasicObject object;
        const bool own = qstrcmp(argv[1], kChildOtherThread) == 0;
        std::thread([&] { own ? object.assertOwnThread() : Veloran::assertMainThread(); }).join();
        return 0; // only reached when the assertion let the call through
    }
    TstFoundationThreads test;
    QTEST_SET_MAIN_SOURCE_PATH
    return QTest::qExec(&test, argc, argv);
}

#include "tst_foundation_threads.moc"
