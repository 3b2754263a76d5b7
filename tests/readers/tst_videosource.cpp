#include "ReaderTestKit.h"
#include "TestMedia.h"

#include "VeloranDec/IVideoFrame.h"
#include "VeloranDec/VideoSource.h"

#include <QtTest>

using namespace Veloran;
using namespace ReaderTestKit;

namespace {

const QVector<AVPixelFormat> kThumbFormats {AV_PIX_FMT_RGB24, AV_PIX_FMT_RGBA};

int numberOf(const QSharedPointer<IVideoFrame> &frame)
{
    return frame ? frameNumber(frame->getRawFrame().data()) : -1;
}

} // namespace

class TestVideoSource : public QObject
{
    Q_OBJECT

private slots:
    void acceptedFormatAtSourceWidthPassesUnconverted()
    {
        VideoSource source;
        QVERIFY(source.openVideo(TestMedia::path("readers-gop50.mp4"), {AV_PIX_FMT_YUV420P}, 0));
        QCOMPARE(source.curFramePts(), 0LL);
        QVERIFY(!source.currentAdaptFrame());
        const QSharedPointer<IVideoFrame> frame = source.seekAndReadNextAdaptFrame(1000, true);
        QVERIFY(frame);
        QCOMPARE(frame->format(), int(AV_PIX_FMT_YUV420P));
        QCOMPARE(frame->frameSize(), QSize(160, 32));
        QCOMPARE(numberOf(frame), 25);
        QCOMPARE(frame->pts(), 1000LL);
        QVERIFY(frame->getStreamInfo());
        QCOMPARE(source.currentAdaptFrame(), frame);
        QCOMPARE(source.curFramePts(), 1000LL);

        const QSharedPointer<IVideoFrame> next = source.readNextAdaptFrame();
        QCOMPARE(numberOf(next), 26);
        QCOMPARE(next->pts(), 1040LL);
        QCOMPARE(source.curFramePts(), 1040LL);
    }

    void framesAreConvertedAndScaledToTheOutputWidth()
    {
        VideoSource source;
        QVERIFY(source.openVideo(TestMedia::path("readers-gop50.mp4"), kThumbFormats, 80));
        QCOMPARE(source.frameIntervals(), 40LL);
        QCOMPARE(source.frameIntervalsMs(), 40LL);
        QCOMPARE(source.durationMs(), 10000LL);
        QCOMPARE(source.coderName(), QString("h264"));
        QVERIFY(source.isVideoAvailable());
        QVERIFY(!source.isCover());
        QCOMPARE(source.getRotation(), 0);
        QCOMPARE(source.getSampleAspectRatio(), 1.0);

        for (long long t : {4010LL, 1990LL, 0LL, 9999LL}) {
            const QSharedPointer<IVideoFrame> frame = source.seekAndReadNextAdaptFrame(t, true);
            QVERIFY(frame);
            QCOMPARE(frame->format(), int(AV_PIX_FMT_RGB24));
            QCOMPARE(frame->frameSize(), QSize(80, 16));
            QCOMPARE(numberOf(frame), int(t / 40));
            QCOMPARE(frame->pts(), t / 40 * 40);
        }
        // A new width takes effect with the next frame.
        source.resetOutputWidth(40);
        const QSharedPointer<IVideoFrame> small = source.seekAndReadNextAdaptFrame(4000, true);
        QVERIFY(small);
        QCOMPARE(small->frameSize(), QSize(40, 8));
        QCOMPARE(numberOf(small), 100);
        // Width 0 with a format the decoder does not give: converted at its own size.
        source.resetOutputWidth(0);
        const QSharedPointer<IVideoFrame> full = source.seekAndReadNextAdaptFrame(2000, true);
        QCOMPARE(full->frameSize(), QSize(160, 32));
        QCOMPARE(full->format(), int(AV_PIX_FMT_RGB24));
        QCOMPARE(numberOf(full), 50);
    }

    void rotatedStreamIsScaledByItsTurnedWidth()
    {
        VideoSource source;
        QVERIFY(source.openVideo(TestMedia::path("readers-rotated.mp4"), kThumbFormats, 320));
        QCOMPARE(source.getRotation(), 90);
        // 1920 x 1080 turned: the height becomes the requested width, 320 / 0.5625
        // = 568.9 truncated.
        QSharedPointer<IVideoFrame> frame = source.seekAndReadNextAdaptFrame(0, true);
        QVERIFY(frame);
        QCOMPARE(frame->frameSize(), QSize(568, 320));
        QCOMPARE(frame->getRotation(), 90);
        source.resetOutputWidth(99);
        frame = source.readNextAdaptFrame();
        QCOMPARE(frame->frameSize(), QSize(176, 99));

        VideoSource upright;
        QVERIFY(upright.openVideo(TestMedia::path("readers-wide.mp4"), kThumbFormats, 320));
        QCOMPARE(upright.getRotation(), 0);
        QCOMPARE(upright.readNextAdaptFrame()->frameSize(), QSize(320, 180));
    }

    void anamorphicStreamReportsItsPixelAspect()
    {
        VideoSource source;
        QVERIFY(source.openVideo(TestMedia::path("readers-anamorphic.mp4"), kThumbFormats, 160));
        QCOMPARE(source.getSampleAspectRatio(), 4.0 / 3.0);
        // The source keeps the coded aspect; the pixel aspect is the caller's to apply.
        const QSharedPointer<IVideoFrame> frame = source.readNextAdaptFrame();
        QCOMPARE(frame->frameSize(), QSize(160, 120));
        QCOMPARE(frame->displaySize(), QSize(214, 120));
    }

    void alphaSourcesUseTheSecondFormat()
    {
        VideoSource withAlpha;
        QVERIFY(withAlpha.openVideo(TestMedia::path("readers-alpha.webm"), kThumbFormats, 64));
        const QSharedPointer<IVideoFrame> rgba = withAlpha.readNextAdaptFrame();
        QVERIFY(rgba);
        QCOMPARE(rgba->format(), int(AV_PIX_FMT_RGBA));
        QCOMPARE(rgba->frameSize(), QSize(64, 48));
        const uint8_t *pixel = rgba->data(0) + 24 * rgba->lineSize(0) + 32 * 4;
        QVERIFY2(pixel[3] > 100 && pixel[3] < 160, qPrintable(QString::number(pixel[3]))); // half transparent
        QVERIFY(pixel[0] > 200 && pixel[1] < 60 && pixel[2] < 60); // red

        VideoSource oneFormat;
        QVERIFY(oneFormat.openVideo(TestMedia::path("readers-alpha.webm"), {AV_PIX_FMT_RGB24}, 64));
        QCOMPARE(oneFormat.readNextAdaptFrame()->format(), int(AV_PIX_FMT_RGB24));

        VideoSource decoded;
        QVERIFY(decoded.openVideo(TestMedia::path("readers-alpha.webm"), {AV_PIX_FMT_YUVA420P}, 0));
        const QSharedPointer<IVideoFrame> raw = decoded.readNextAdaptFrame();
        QCOMPARE(raw->format(), int(AV_PIX_FMT_YUVA420P));
        QCOMPARE(raw->frameSize(), QSize(64, 48));
    }

    void revertReturnsTheFramesBeforeNearestFirst()
    {
        VideoSource source;
        QVERIFY(source.openVideo(TestMedia::path("readers-gop50.mp4"), kThumbFormats, 80));
        const QSharedPointer<IVideoFrame> current = source.seekAndReadNextAdaptFrame(6000, true);
        const QVector<QSharedPointer<IVideoFrame>> frames = source.revertSeekAndReadNextAdaptFrame(1010, 0);
        QCOMPARE(frames.size(), 26);
        for (int i = 0; i < frames.size(); ++i) {
            QCOMPARE(numberOf(frames[i]), 25 - i);
            QCOMPARE(frames[i]->pts(), (25 - i) * 40LL);
            QCOMPARE(frames[i]->frameSize(), QSize(80, 16));
        }
        QCOMPARE(source.currentAdaptFrame(), current);
        QVERIFY(source.revertSeekAndReadNextAdaptFrame(0, 0).isEmpty());
    }

    void coverPictureIsNeverAvailableVideo()
    {
        VideoSource source;
        QVERIFY(source.openVideo(TestMedia::path("readers-cover.mp3"), kThumbFormats, 32));
        QVERIFY(source.isCover());
        QVERIFY(!source.isVideoAvailable());
        QCOMPARE(source.readNextAdaptFrame()->frameSize(), QSize(32, 32));
    }

    void failedOpenLeavesNoReader_data()
    {
        QTest::addColumn<QString>("path");
        QTest::newRow("missing") << TestMedia::path("readers-no-such-file.mp4");
        QTest::newRow("not media") << TestMedia::path("readers-garbage.mp4");
        QTest::newRow("audio only") << TestMedia::path("readers-mono44.m4a");
    }

    void failedOpenLeavesNoReader()
    {
        QFETCH(QString, path);
        VideoSource source;
        // A good file first: the failed open must drop its reader.
        QVERIFY(source.openVideo(TestMedia::path("readers-gop50.mp4"), kThumbFormats, 80));
        QVERIFY(source.readNextAdaptFrame());
        QVERIFY(!source.openVideo(path, kThumbFormats, 80));
        QVERIFY(!source.readNextAdaptFrame());
        QVERIFY(!source.seekAndReadNextAdaptFrame(1000, true));
        QVERIFY(source.revertSeekAndReadNextAdaptFrame(1000, 0).isEmpty());
        QCOMPARE(source.frameIntervals(), 40LL);
        QCOMPARE(source.frameIntervalsMs(), 0LL);
        QCOMPARE(source.durationMs(), 0LL);
        QCOMPARE(source.getRotation(), 0);
        QCOMPARE(source.getSampleAspectRatio(), 1.0);
        QVERIFY(!source.isCover());
        QVERIFY(!source.isVideoAvailable());
        QVERIFY(source.coderName().isEmpty());
        QVERIFY(!source.adaptFrame(AVFramePtr()));
    }

    void hardwareOpenAlwaysFails()
    {
        VideoSource source;
        QVERIFY(!source.openVideo_D3D(TestMedia::path("readers-gop50.mp4"), kThumbFormats, 80));
        QVERIFY(!source.readNextAdaptFrame());
        QCOMPARE(source.frameIntervals(), 40LL);
    }

    void truncatedFileReadsWhatItHas()
    {
        VideoSource source;
        QVERIFY(source.openVideo(TestMedia::path("readers-truncated.mp4"), kThumbFormats, 80));
        int count = 0;
        while (source.readNextAdaptFrame() && count < 1000)
            ++count;
        QVERIFY(count > 0);
        QVERIFY(count < 100);
        source.seekAndReadNextAdaptFrame(3500, true);
        source.revertSeekAndReadNextAdaptFrame(3500, 0);
    }
};

QTEST_GUILESS_MAIN(TestVideoSource)
#include "tst_videosource.moc"
