#include "LogCapture.h"

#include "Common/BasicObject.h"
#include "Common/Stopwatch.h"
#include "Common/ThreadDispatch.h"
#include "Common/TryThread.h"
#include "Common/WaitCondition.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QPointer>
#include <QProcess>
#include <QRegularExpression>
#include <QSemaphore>
#include <QThread>
#include <QTimer>
#include <QtTest>

#include <atomic>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <thread>

using namespace Veloran;

namespace {

// Child-process modes of this binary, for checks that end the process.
const char *const kChildOtherThread = "--child-assert-own-thread-elsewhere";
const char *const kChildMainThread = "--child-assert-main-thread-elsewhere";

int runChild(int argc, char **argv, const QByteArray &mode)
{
    QCoreApplication app(argc, argv);
    BasicObject object;
    std::thread other([&] {
        if (mode == kChildOtherThread)
            object.assertOwnThread();
        else
            Veloran::assertMainThread();
    });
    other.join();
    return 0; // only reached when the assertion let the call through
}

// Runs `fn` on a fresh thread and waits for it. Plain threads where Qt is not needed:
// their join is visible to ThreadSanitizer, QThread::wait() is not always.
template <typename Fn>
void runOnOtherThread(Fn fn)
{
    std::thread(fn).join();
}

class ScriptedThread : public TryThread
{
public:
    ScriptedThread()
    {
        // finished is emitted by the thread after run(); reading this flag after
        // wait() orders the test's reads after everything the run wrote.
        connect(this, &QThread::finished, this, [this] { done.store(true); }, Qt::DirectConnection);
    }
    bool runToEnd()
    {
        done = false;
        start();
        return wait(10000) && done.load();
    }

    std::atomic_bool done{false};
    enum class Outcome { Return, ThrowStd, ThrowInt };
    Outcome outcome = Outcome::Return;
    std::atomic_int runs{0};

protected:
    void tryRun() override
    {
        ++runs;
        if (outcome == Outcome::ThrowStd)
            throw std::runtime_error("decoder gave up");
        if (outcome == Outcome::ThrowInt)
            throw 42;
    }
};

// Sees, through an application event filter, the timer objects of the main thread
// as soon as they get their first event, so a test can follow what becomes of them.
class TimerWatcher : public QObject
{
public:
    QList<QPointer<QTimer>> timers;

    bool eventFilter(QObject *watched, QEvent *event) override
    {
        if (auto *timer = qobject_cast<QTimer *>(watched)) {
            if (event->type() == QEvent::MetaCall && !timers.contains(timer))
                timers.append(timer);
        }
        return false;
    }
};

class EventLoopThread
{
public:
    EventLoopThread() { thread.start(); }
    ~EventLoopThread()
    {
        thread.quit();
        thread.wait();
    }
    QThread thread;
};

} // namespace

class TstThreadHelpers : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void waitReturnsTrueAfterWakeOne()
    {
        WaitCondition condition(false); // the owner's start value is overwritten by wait()
        std::atomic_int result{-1};
        std::thread waiter([&] { result = condition.wait(30000) ? 1 : 0; });
        // Wakes before the waiter sleeps are lost, so keep waking until it answers.
        QTRY_VERIFY_WITH_TIMEOUT((condition.wakeOne(), result.load() != -1), 20000);
        waiter.join();
        QCOMPARE(result.load(), 1);
    }

    void waitReturnsFalseAfterWakeOneFalse()
    {
        WaitCondition condition(true);
        std::atomic_int result{-1};
        std::thread waiter([&] { result = condition.wait(30000) ? 1 : 0; });
        QTRY_VERIFY_WITH_TIMEOUT((condition.wakeOneFalse(), result.load() != -1), 20000);
        waiter.join();
        QCOMPARE(result.load(), 0);

        // The false flag belongs to that wake only: the next wait starts from true.
        result = -1;
        std::thread second([&] { result = condition.wait(30000) ? 1 : 0; });
        QTRY_VERIFY_WITH_TIMEOUT((condition.wakeOne(), result.load() != -1), 20000);
        second.join();
        QCOMPARE(result.load(), 1);
    }

    void waitTimesOutWithFalseAndForgetsEarlierWakes()
    {
        WaitCondition condition(true);
        // Nobody waits yet: these wakes are lost.
        condition.wakeOne();
        condition.wakeOneFalse();
        QElapsedTimer timer;
        timer.start();
        QCOMPARE(condition.wait(60), false);
        QVERIFY(timer.elapsed() >= 55); // it really waited instead of consuming a stored wake
    }

    void waitConditionLogsItsDestruction()
    {
        LogCapture capture;
        {
            WaitCondition condition(true);
            QVERIFY(capture.messages().isEmpty());
        }
        QCOMPARE(capture.messages(), QStringList{QStringLiteral("~WaitCondition()....")});
    }

    void tryThreadReportsExceptionsOnce()
    {
        for (auto outcome : {ScriptedThread::Outcome::ThrowStd, ScriptedThread::Outcome::ThrowInt}) {
            ScriptedThread thread;
            thread.outcome = outcome;
            QSignalSpy spy(&thread, &TryThread::exceptionThrowOut);
            QVERIFY(thread.runToEnd());
            QCOMPARE(thread.runs.load(), 1);
            QCOMPARE(spy.count(), 1);
            QCOMPARE(thread.isFinishedSuccess(), false);
        }
    }

    void tryThreadFinishesSuccessfullyAndReflectsTheLastRun()
    {
        ScriptedThread thread;
        QSignalSpy spy(&thread, &TryThread::exceptionThrowOut);
        QCOMPARE(thread.isFinishedSuccess(), false); // not run yet
        QVERIFY(thread.runToEnd());
        QCOMPARE(thread.isFinishedSuccess(), true);
        QCOMPARE(spy.count(), 0);

        thread.outcome = ScriptedThread::Outcome::ThrowStd;
        QVERIFY(thread.runToEnd());
        QCOMPARE(thread.isFinishedSuccess(), false);
        QCOMPARE(spy.count(), 1);

        thread.outcome = ScriptedThread::Outcome::Return;
        QVERIFY(thread.runToEnd());
        QCOMPARE(thread.isFinishedSuccess(), true);
        QCOMPARE(spy.count(), 1);
        QCOMPARE(thread.runs.load(), 3);
    }

    void dispatchRunsLaterOnTheTargetThread()
    {
        EventLoopThread worker;
        std::atomic<QThread *> ranOn{nullptr};
        dispatchToThread(&worker.thread, [&] { ranOn = QThread::currentThread(); });
        QTRY_VERIFY_WITH_TIMEOUT(ranOn.load() != nullptr, 10000);
        QCOMPARE(ranOn.load(), &worker.thread);
    }

    void dispatchFromTheTargetThreadItselfIsDeferred()
    {
        EventLoopThread worker;
        std::mutex mutex;
        QStringList order;
        auto note = [&](const QString &step) {
            std::lock_guard<std::mutex> lock(mutex);
            order.append(step);
        };
        dispatchToThread(&worker.thread, [&] {
            note("outer start");
            dispatchToThread(QThread::currentThread(), [&] { note("inner"); });
            note("outer end");
        });
        auto steps = [&] {
            std::lock_guard<std::mutex> lock(mutex);
            return order;
        };
        QTRY_COMPARE_WITH_TIMEOUT(steps().size(), 3, 10000);
        QCOMPARE(steps(), (QStringList{"outer start", "outer end", "inner"}));
    }

    void dispatchNeverWaitsForABusyThread()
    {
        EventLoopThread worker;
        QSemaphore release;
        std::atomic_bool busy{false};
        std::atomic_bool second{false};
        dispatchToThread(&worker.thread, [&] {
            busy = true;
            release.acquire();
        });
        QTRY_VERIFY_WITH_TIMEOUT(busy.load(), 10000);
        // The worker's loop is blocked; handing it more work still returns at once.
        dispatchToThread(&worker.thread, [&] { second = true; });
        QVERIFY(!second.load());
        release.release();
        QTRY_VERIFY_WITH_TIMEOUT(second.load(), 10000);
    }

    void dispatchToMainThreadRunsInTheMainLoopAndFreesItsTimer()
    {
        TimerWatcher watcher;
        QCoreApplication::instance()->installEventFilter(&watcher);
        std::atomic<QThread *> ranOn{nullptr};
        std::atomic_int runs{0};

        dispatchToMainThread([&] {
            ranOn = QThread::currentThread();
            ++runs;
        });
        QCOMPARE(runs.load(), 0); // never inside the call, even from the main thread itself
        QTRY_COMPARE_WITH_TIMEOUT(runs.load(), 1, 10000);
        QCOMPARE(ranOn.load(), QCoreApplication::instance()->thread());

        // From another thread as well.
        ranOn = nullptr;
        runOnOtherThread([&] {
            dispatchToMainThread([&] {
                ranOn = QThread::currentThread();
                ++runs;
            });
        });
        QTRY_COMPARE_WITH_TIMEOUT(runs.load(), 2, 10000);
        QCOMPARE(ranOn.load(), QCoreApplication::instance()->thread());

        // Each dispatch used one timer, and each deletes itself after running.
        QCOMPARE(watcher.timers.size(), 2);
        QTRY_VERIFY_WITH_TIMEOUT(watcher.timers.at(0).isNull() && watcher.timers.at(1).isNull(), 10000);
        QCoreApplication::instance()->removeEventFilter(&watcher);
        QCOMPARE(runs.load(), 2); // and runs its function once only
    }

    void rangeSleepSleepsMsMinusTenBelowTheLimit()
    {
        // Lower bounds only: a sleep may always last longer than asked.
        auto sleptNs = [](int ms, int limit) {
            QElapsedTimer timer;
            timer.start();
            rangeSleep(ms, limit);
            return timer.nsecsElapsed();
        };
        const qint64 ms = 1000000;
        QVERIFY(sleptNs(50, 100) >= 40 * ms);
        QVERIFY(sleptNs(260, 1000) >= 250 * ms);  // a higher limit lets longer sleeps through
        QVERIFY(sleptNs(110, 101) >= 100 * ms);   // d = limit - 1 is still inside
        QVERIFY(sleptNs(11, 100) >= 1 * ms);      // d = 1, the smallest inside
        // Outside the range it still sleeps its 1 ms.
        QVERIFY(sleptNs(5, 100) >= 1 * ms);
        QVERIFY(sleptNs(10, 100) >= 1 * ms);
        QVERIFY(sleptNs(200, 100) >= 1 * ms);
        QVERIFY(sleptNs(-50, 100) >= 1 * ms);
    }

    void stopwatchRoundsHalfUpOnTheHundreds()
    {
        QCOMPARE(Stopwatch::roundedMicroseconds(1234567), 1235LL);
        QCOMPARE(Stopwatch::roundedMicroseconds(1234499), 1234LL);
        QCOMPARE(Stopwatch::roundedMicroseconds(1234500), 1235LL);
        QCOMPARE(Stopwatch::roundedMicroseconds(1234450), 1234LL); // only the hundreds digit counts
        QCOMPARE(Stopwatch::roundedMicroseconds(999), 1LL);
        QCOMPARE(Stopwatch::roundedMicroseconds(499), 0LL);
        QCOMPARE(Stopwatch::roundedMicroseconds(0), 0LL);
    }

    void stopwatchLogsItsNameAndMicroseconds()
    {
        LogCapture capture;
        {
            Stopwatch watch(QStringLiteral("decode frame"));
            QThread::msleep(3);
        }
        const QStringList messages = capture.messages();
        QCOMPARE(messages.size(), 1);
        // QDebug quotes the name and puts a space between the parts.
        const QRegularExpression line(QStringLiteral("^\"decode frame\"  cost : (\\d+) \\(ns\\)$"));
        const QRegularExpressionMatch match = line.match(messages.first());
        QVERIFY2(match.hasMatch(), qPrintable(messages.first()));
        QVERIFY(match.captured(1).toLongLong() >= 3000); // microseconds, despite the label

        capture.clear();
        {
            Stopwatch nameless;
            Stopwatch empty{QString()};
        }
        QVERIFY(capture.messages().isEmpty());
    }

    void assertionsPassOnTheOwningThreadAndForDetachedObjects()
    {
        BasicObject object;
        object.assertOwnThread();
        object.assertMainThread();
        Veloran::assertOwnThread(&object);
        Veloran::assertOwnThread(nullptr);
        Veloran::assertMainThread();

        // An object that lives on a worker, used from that worker.
        EventLoopThread worker;
        auto *moved = new BasicObject;
        moved->moveToThread(&worker.thread);
        std::atomic_bool done{false};
        dispatchToThread(&worker.thread, [&] {
            moved->assertOwnThread();
            delete moved;
            done = true;
        });
        QTRY_VERIFY_WITH_TIMEOUT(done.load(), 10000);

        // An object with no thread at all may be used from anywhere.
        BasicObject detached;
        detached.moveToThread(nullptr);
        runOnOtherThread([&] { detached.assertOwnThread(); });
        detached.assertOwnThread();
        QVERIFY(detached.thread() == nullptr);
    }

    void assertionsAbortOnTheWrongThread_data()
    {
        QTest::addColumn<QString>("mode");
        QTest::addColumn<QString>("message");
        QTest::newRow("own thread") << QString::fromLatin1(kChildOtherThread)
                                    << QStringLiteral("assertOwnThread: Veloran::BasicObject 0x");
        QTest::newRow("main thread") << QString::fromLatin1(kChildMainThread)
                                     << QStringLiteral("assertMainThread: called from thread 0x");
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
        QCOMPARE(child.exitCode(), 0);
        QVERIFY2(!errors.contains(message), qPrintable(errors));
#endif
    }
};

int main(int argc, char **argv)
{
    if (argc == 2 && (qstrcmp(argv[1], kChildOtherThread) == 0 || qstrcmp(argv[1], kChildMainThread) == 0))
        return runChild(argc, argv, argv[1]);
    QCoreApplication app(argc, argv);
    TstThreadHelpers test;
    QTEST_SET_MAIN_SOURCE_PATH
    return QTest::qExec(&test, argc, argv);
}

#include "tst_threadhelpers.moc"
