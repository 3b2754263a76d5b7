#include "ReaderTestKit.h"
#include "TestMedia.h"

#include "VeloranDec/AudioSource.h"
#include "VeloranDec/IAudioFrame.h"
#include "VeloranDec/IVideoFrame.h"
#include "VeloranDec/VideoSource.h"

#include <QThread>
#include <QtTest>

#include <atomic>
#include <functional>
#include <memory>

using namespace Veloran;
using namespace ReaderTestKit;

namespace {

// Runs fn once on a thread of its own, as a pool thread runs a picker. No event loop
// is involved: the hand-over is the thread's start and end.
class WorkerRun
{
public:
    explicit WorkerRun(std::function<void()> fn)
        : mThread(QThread::create([this, fn = std::move(fn)] {
            fn();
            mFinished.store(true, std::memory_order_release);
        }))
    {
    }

    QThread *thread() const { return mThread.get(); }

    // Starts the thread and waits for its end. The flag also makes the end visible
    // to ThreadSanitizer, which does not see the wait inside Qt.
    bool runToEnd()
    {
        mThread->start();
        return mThread->wait(60000) && mFinished.load(std::memory_order_acquire);
    }

private:
    std::atomic<bool> mFinished {false};
    std::unique_ptr<QThread> mThread;
};

} // namespace

// The sources, their readers (with demuxers and decoders) and adapters assert in
// Debug builds that they are used on their own thread: moving them must move all.
class TestSourceThreads : public QObject
{
    Q_OBJECT

private slots:
    void videoSourceMovesToAWorkerAndBack()
    {
        QThread *main = QThread::currentThread();
        VideoSource source;
        QVERIFY(source.openVideo(TestMedia::path("readers-gop50.mp4"), {AV_PIX_FMT_RGB24, AV_PIX_FMT_RGBA}, 80));
        QCOMPARE(frameNumber(source.seekAndReadNextAdaptFrame(400, true)->getRawFrame().data()), 10);

        // Pushed to a worker, used there, pushed back by the worker.
        int onWorker = -1;
        WorkerRun first([&] {
            // A new output width makes a new converter on the worker.
            source.resetOutputWidth(40);
            const QSharedPointer<IVideoFrame> frame = source.seekAndReadNextAdaptFrame(2000, true);
            onWorker = frame ? frameNumber(frame->getRawFrame().data()) : -1;
            source.moveSelfToThread(main);
        });
        source.moveSelfToThread(first.thread());
        QVERIFY(first.runToEnd());
        QCOMPARE(onWorker, 50);
        QCOMPARE(frameNumber(source.seekAndReadNextAdaptFrame(4000, true)->getRawFrame().data()), 100);

        // Detached between runs, as the pickers leave it, and taken up by whichever
        // thread runs next.
        source.moveSelfToThread(nullptr);
        for (long long t : {6000LL, 8000LL}) {
            onWorker = -1;
            WorkerRun next([&] {
                source.moveSelfToThread(QThread::currentThread());
                const QSharedPointer<IVideoFrame> frame = source.seekAndReadNextAdaptFrame(t, true);
                onWorker = frame ? frameNumber(frame->getRawFrame().data()) : -1;
                source.moveSelfToThread(nullptr);
            });
            QVERIFY(next.runToEnd());
            QCOMPARE(onWorker, int(t / 40));
        }
        source.moveSelfToThread(main);
        QVERIFY(source.readNextAdaptFrame());
    }

    void audioSourceMovesToAWorkerAndBack()
    {
        AudioSource source;
        QVERIFY(source.open(TestMedia::path("sample.mp4"), AV_SAMPLE_FMT_U8, 1, -1, 48000));
        source.moveSelfToThread(nullptr);
        long long pts = -1;
        WorkerRun run([&] {
            source.moveSelfToThread(QThread::currentThread());
            const QSharedPointer<IAudioFrame> frame = source.seekAndReadNextAdaptFrame(1000, true);
            pts = frame ? frame->pts() : -1;
            source.moveSelfToThread(nullptr);
        });
        QVERIFY(run.runToEnd());
        QVERIFY(pts > 1000 - 2 * source.frameInterval() && pts <= 1000);
        source.moveSelfToThread(QThread::currentThread());
        QVERIFY(source.readNextAdaptFrame());
    }
};

QTEST_GUILESS_MAIN(TestSourceThreads)
#include "tst_sourcethreads.moc"
