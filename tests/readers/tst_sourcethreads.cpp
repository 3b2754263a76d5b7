#include "ReaderTestKit.h"
#include "TestMedia.h"

#include "VeloranDec/AudioSource.h"
#include "VeloranDec/IAudioFrame.h"
#include "VeloranDec/IVideoFrame.h"
#include "VeloranDec/VideoSource.h"

#include <QThread>
#include <QtTest>

#include <functional>

using namespace Veloran;
using namespace ReaderTestKit;

namespace {

// Runs fn in the worker's event loop and waits for it.
void runIn(QThread *thread, const std::function<void()> &fn)
{
    QObject context;
    context.moveToThread(thread);
    QMetaObject::invokeMethod(&context, fn, Qt::BlockingQueuedConnection);
    // Hand the context back so it is destroyed on this thread.
    QMetaObject::invokeMethod(&context, [&context] { context.moveToThread(QCoreApplication::instance()->thread()); },
                              Qt::BlockingQueuedConnection);
}

} // namespace

// The sources, their readers (with demuxers and decoders) and adapters assert in
// Debug builds that they are used on their own thread: moving them must move all.
class TestSourceThreads : public QObject
{
    Q_OBJECT

private slots:
    void videoSourceMovesToAWorkerAndBack()
    {
        QThread worker;
        worker.start();
        QThread *main = QThread::currentThread();

        VideoSource source;
        QVERIFY(source.openVideo(TestMedia::path("readers-gop50.mp4"), {AV_PIX_FMT_RGB24, AV_PIX_FMT_RGBA}, 80));
        QCOMPARE(frameNumber(source.seekAndReadNextAdaptFrame(400, true)->getRawFrame().data()), 10);

        source.moveSelfToThread(&worker);
        int onWorker = -1;
        runIn(&worker, [&] {
            // A new output width makes a new converter on the worker.
            source.resetOutputWidth(40);
            const QSharedPointer<IVideoFrame> frame = source.seekAndReadNextAdaptFrame(2000, true);
            onWorker = frame ? frameNumber(frame->getRawFrame().data()) : -1;
            source.moveSelfToThread(main);
        });
        QCOMPARE(onWorker, 50);
        QCOMPARE(frameNumber(source.seekAndReadNextAdaptFrame(4000, true)->getRawFrame().data()), 100);

        // Detached between runs, as the pickers leave it, and taken up again.
        source.moveSelfToThread(&worker);
        runIn(&worker, [&] {
            source.readNextAdaptFrame();
            source.moveSelfToThread(nullptr);
        });
        runIn(&worker, [&] {
            source.moveSelfToThread(QThread::currentThread());
            const QSharedPointer<IVideoFrame> frame = source.seekAndReadNextAdaptFrame(6000, true);
            onWorker = frame ? frameNumber(frame->getRawFrame().data()) : -1;
            source.moveSelfToThread(main);
        });
        QCOMPARE(onWorker, 150);

        worker.quit();
        worker.wait();
    }

    void audioSourceMovesToAWorkerAndBack()
    {
        QThread worker;
        worker.start();
        QThread *main = QThread::currentThread();

        AudioSource source;
        QVERIFY(source.open(TestMedia::path("sample.mp4"), AV_SAMPLE_FMT_U8, 1, -1, 48000));
        source.moveSelfToThread(&worker);
        long long pts = -1;
        runIn(&worker, [&] {
            const QSharedPointer<IAudioFrame> frame = source.seekAndReadNextAdaptFrame(1000, true);
            pts = frame ? frame->pts() : -1;
            source.moveSelfToThread(nullptr);
        });
        QVERIFY(pts > 1000 - 2 * source.frameInterval() && pts <= 1000);
        source.moveSelfToThread(main);
        QVERIFY(source.readNextAdaptFrame());

        worker.quit();
        worker.wait();
    }
};

QTEST_GUILESS_MAIN(TestSourceThreads)
#include "tst_sourcethreads.moc"
