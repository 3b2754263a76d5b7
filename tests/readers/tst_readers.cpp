#include "FFmpegJoint.h"
#include "LogCapture.h"
#include "ReaderTestKit.h"
#include "ScratchFiles.h"
#include "TestMedia.h"

#include "VeloranDec/AudioSource.h"
#include "VeloranDec/FFAudioStreamReader.h"
#include "VeloranDec/FFVideoStreamReader.h"
#include "VeloranDec/IAudioFrame.h"
#include "VeloranDec/IVideoFrame.h"
#include "VeloranDec/VideoSource.h"

#include <QThread>
#include <QtTest>

#include <algorithm>
#include <atomic>
#include <memory>

using namespace Veloran;
using namespace ReaderTestKit;

namespace {

const QVector<AVPixelFormat> kThumbFormats {AV_PIX_FMT_RGB24, AV_PIX_FMT_RGBA};

int numberOf(const QSharedPointer<IVideoFrame> &frame)
{
    return frame ? frameNumber(frame->getRawFrame().data()) : -1;
}

// Accurate seeks give the frame on screen at each time, by burned-in number and time.
void checkAccurateSeeks(FFVideoStreamReader &reader, const QVector<long long> &times, const QVector<long long> &targets)
{
    for (long long t : targets) {
        const AVFramePtr frame = reader.seekAndReadNextFrame(t, true);
        QVERIFY2(frame, qPrintable(QString("no frame at %1").arg(t)));
        const int expected = frameShownAt(times, t);
        QVERIFY2(frameNumber(frame.data()) == expected,
                 qPrintable(QString("at %1 ms got frame %2, expected %3").arg(t).arg(frameNumber(frame.data())).arg(expected)));
        QCOMPARE(frame->pts, times[expected]);
    }
}

// The next frames come in order, numbered from 0, at the given times.
void checkReadsInOrder(FFStreamReader &reader, const QVector<long long> &times)
{
    for (int i = 0; i < times.size(); ++i) {
        const AVFramePtr frame = reader.readNextFrame();
        QVERIFY2(frame && frameNumber(frame.data()) == i, qPrintable(QString("frame %1").arg(i)));
        QCOMPARE(frame->pts, times[i]);
    }
}

} // namespace

// The stream readers (frames at their times) and the sources (converted frames).
class TestReaders : public QObject
{
    Q_OBJECT

private slots:
    void readsEveryFrameInOrder()
    {
        const QVector<long long> times = frameTimesMs("readers-gop50.mp4.v.txt");
        QCOMPARE(times.size(), 250);
        FFVideoStreamReader reader;
        QVERIFY(reader.openStream(TestMedia::path("readers-gop50.mp4"), AVMEDIA_TYPE_VIDEO, -1));
        QCOMPARE(reader.frameIntervalsMs(), 40LL);
        checkReadsInOrder(reader, times);
        QVERIFY(!reader.readNextFrame());
        // After the end a seek decodes again; an inaccurate one gives the keyframe it lands on.
        QCOMPARE(frameNumber(reader.seekAndReadNextFrame(0, true).data()), 0);
        for (long long t : {100LL, 2500LL, 5990LL})
            QCOMPARE(frameNumber(reader.seekAndReadNextFrame(t, false).data()), int(t / 2000 * 50));
    }

    void seeksFindTheFrameShown_data()
    {
        // Every how many frames to seek accurately forwards and to read backwards (0: not).
        QTest::addColumn<QString>("media");
        QTest::addColumn<int>("every");
        QTest::addColumn<int>("everyBackward");
        QTest::newRow("keyframe every 2 s, B-frames") << "readers-gop50.mp4" << 1 << 3;
        QTest::newRow("one keyframe in 10 s") << "readers-longgop.mp4" << 7 << 11;
        QTest::newRow("29.97 fps") << "readers-ntsc.mp4" << 1 << 0;
        QTest::newRow("open GOPs") << "readers-opengop.mkv" << 0 << 5;
        QTest::newRow("all-intra H.264") << "readers-intra.mp4" << 1 << 1;
        QTest::newRow("ProRes") << "readers-prores.mov" << 1 << 1;
        QTest::newRow("DNxHR") << "readers-dnxhr.mov" << 1 << 1;
        QTest::newRow("MJPEG AVI") << "readers-mjpeg.avi" << 1 << 1;
        QTest::newRow("transport stream") << "readers-offset.ts" << 0 << 2;
        QTest::newRow("variable rate MP4") << "readers-vfr.mp4" << 1 << 1;
        QTest::newRow("variable rate Matroska") << "readers-vfr.mkv" << 1 << 1;
    }

    // Accurate seeks give the frame on screen; backward reads ("previous frame") give at most the count asked,
    // in order, ending with the frame shown just before the time.
    void seeksFindTheFrameShown()
    {
        QFETCH(QString, media);
        QFETCH(int, every);
        QFETCH(int, everyBackward);
        FFVideoStreamReader reader;
        QVERIFY(reader.openStream(TestMedia::path(media), AVMEDIA_TYPE_VIDEO, -1));
        const QVector<long long> times = shifted(frameTimesMs(media + ".v.txt"), std::max(0LL, reader.startTimeMs()));
        QVERIFY(times.size() > 30);
        if (every > 0) {
            // A frame's first, middle and last millisecond (the last is just before a keyframe too).
            QVector<long long> targets;
            for (int i = 0; i < times.size(); i += every) {
                const long long next = i + 1 < times.size() ? times[i + 1] : times[i] + reader.frameIntervalsMs();
                targets << times[i] << (times[i] + next) / 2 << next - 1;
            }
            checkAccurateSeeks(reader, times, targets);
            // Backwards and far jumps; past the end the last frame stays on screen.
            checkAccurateSeeks(reader, times, {times.last() - 1, 1, times[times.size() / 2] + 3, 0, times.last() + 5000});
        }
        if (everyBackward == 0)
            return;
        const long long kCount = 3;
        QVector<long long> targets {times.last() + 1000};
        for (int i = 1; i < times.size(); i += everyBackward)
            targets << times[i] << times[i] + 1 << (times[i - 1] + times[i]) / 2 + 1;
        for (long long t : targets) {
            const QVector<AVFramePtr> frames = reader.revertSeekAndReadFrame(t, kCount);
            const QString where = QString("before %1 ms").arg(t);
            QVERIFY2(!frames.isEmpty() && frames.size() <= kCount, qPrintable(where));
            const int last = frameShownAt(times, t - 1);
            for (int i = 0; i < frames.size(); ++i) {
                const int number = last - (frames.size() - 1 - i);
                QVERIFY2(frameNumber(frames[i].data()) == number && frames[i]->pts == times[number], qPrintable(where));
            }
        }
        // Nothing lies before the first frame.
        QVERIFY(reader.revertSeekAndReadFrame(times.first(), kCount).isEmpty());
        QVERIFY(reader.revertSeekAndReadFrame(0, kCount).isEmpty());
    }

    void timesCountFromTheFirstAudioSample_data()
    {
        QTest::addColumn<QString>("media");
        QTest::addColumn<bool>("seekable");
        QTest::newRow("audio 1.5 s after the video") << "readers-late.mkv" << true;
        QTest::newRow("the same in MP4 with AAC") << "readers-late.mp4" << true;
        QTest::newRow("container clock from 1.4 s") << "readers-offset.mkv" << true;
        // A transport stream is searched by timestamp and lands between keyframes.
        QTest::newRow("transport stream") << "readers-offset.ts" << false;
    }

    void timesCountFromTheFirstAudioSample()
    {
        QFETCH(QString, media);
        QFETCH(bool, seekable);
        const QVector<long long> audioTimes = frameTimesMs(media + ".a.txt");
        QVERIFY(!audioTimes.isEmpty() && audioTimes.first() > 1000);
        FFAudioStreamReader audio;
        QVERIFY(audio.openStream(TestMedia::path(media), AVMEDIA_TYPE_AUDIO, -1));
        QCOMPARE(audio.startTimeMs(), audioTimes.first());
        const AVFramePtr firstSamples = audio.readNextFrame();
        QVERIFY(firstSamples && firstSamples->pts == 0);

        // Video times shift back by the same amount, clamped at 0.
        const QVector<long long> times = shifted(frameTimesMs(media + ".v.txt"), audioTimes.first());
        QCOMPARE(times.size(), 100);
        FFVideoStreamReader reader;
        QVERIFY(reader.openStream(TestMedia::path(media), AVMEDIA_TYPE_VIDEO, -1));
        QCOMPARE(reader.startTimeMs(), audioTimes.first());
        checkReadsInOrder(reader, times);
        if (seekable)
            checkAccurateSeeks(reader, times, {40, 1015, 2222, 500, 2479});
    }

    void framesWithoutTimestampsGetPredictedTimes()
    {
        // An elementary stream: each frame gets the previous time plus one interval.
        FFVideoStreamReader reader;
        QVERIFY(reader.openStream(TestMedia::path("readers-raw.h264"), AVMEDIA_TYPE_VIDEO, -1));
        QVector<long long> times(50);
        std::generate(times.begin(), times.end(), [t = -40LL]() mutable { return t += 40; });
        checkReadsInOrder(reader, times);
    }

    void backwardReadsHoldWhatWasAskedFor()
    {
        // Nearest first, converted, current frame kept; the long-GOP file has 125 frames before 5 s.
        VideoSource source;
        QVERIFY(source.openVideo(TestMedia::path("readers-longgop.mp4"), kThumbFormats, 80));
        const QSharedPointer<IVideoFrame> current = source.seekAndReadNextAdaptFrame(6000, true);
        for (const auto &asked : QList<QPair<long long, int>> {{5, 5}, {0, FFStreamReader::kDefaultFramesBefore},
                                                                {1000, FFStreamReader::kMostFramesBefore}}) {
            const QVector<QSharedPointer<IVideoFrame>> frames = source.revertSeekAndReadNextAdaptFrame(5000, asked.first);
            QCOMPARE(frames.size(), asked.second);
            for (int i = 0; i < frames.size(); ++i) {
                QCOMPARE(numberOf(frames[i]), 124 - i);
                QCOMPARE(frames[i]->frameSize(), QSize(80, 16));
            }
        }
        QCOMPARE(source.currentAdaptFrame(), current);
    }

    // The reader's accurate seeks give the frame covering the time; the source converts every frame.
    void audioIsSeekedAndConverted_data()
    {
        QTest::addColumn<QString>("media");
        QTest::addColumn<long long>("interval");
        QTest::addColumn<int>("format");
        QTest::addColumn<int>("channels");
        QTest::addColumn<int>("rate");
        QTest::newRow("AAC 48 kHz to u8 mono") << "sample.mp4" << 21LL << int(AV_SAMPLE_FMT_U8) << 1 << 48000;
        QTest::newRow("AAC mono 44.1 kHz to float planar 5.1 48 kHz")
            << "readers-mono44.m4a" << 23LL << int(AV_SAMPLE_FMT_FLTP) << 6 << 48000;
        QTest::newRow("AC-3 5.1, no frame size in Matroska, to s16 stereo 44.1 kHz")
            << "readers-surround.mka" << 40LL << int(AV_SAMPLE_FMT_S16) << 2 << 44100;
        QTest::newRow("PCM, no frame size, to u8 mono") << "sine.wav" << 40LL << int(AV_SAMPLE_FMT_U8) << 1 << 48000;
    }

    void audioIsSeekedAndConverted()
    {
        QFETCH(QString, media);
        QFETCH(long long, interval);
        QFETCH(int, format);
        QFETCH(int, channels);
        QFETCH(int, rate);
        FFAudioStreamReader reader;
        QVERIFY(reader.openStream(TestMedia::path(media), AVMEDIA_TYPE_AUDIO, -1));
        QCOMPARE(reader.frameIntervalsMs(), interval);
        for (long long t : {1000LL, 250LL, 1500LL, 777LL}) {
            const AVFramePtr frame = reader.seekAndReadNextFrame(t, true);
            const long long length = frame ? frame->nb_samples * 1000LL / frame->sample_rate : -1;
            QVERIFY2(frame && frame->pts <= t && t <= frame->pts + length + 1,
                     qPrintable(QString("at %1: frame %2 + %3").arg(t).arg(frame ? frame->pts : -1).arg(length)));
        }

        AudioSource source;
        QVERIFY(source.open(TestMedia::path(media), AVSampleFormat(format), channels, -1, rate));
        long long samples = 0;
        long long lastPts = -1;
        while (const QSharedPointer<IAudioFrame> frame = source.readNextAdaptFrame()) {
            QVERIFY(frame->format() == format && frame->sampleRate() == rate && frame->pts() > lastPts);
            QCOMPARE(frame->toAVFrame()->ch_layout.nb_channels, channels);
            lastPts = frame->pts();
            samples += frame->samples();
        }
        // The resampler keeps a few samples back; everything else comes out.
        const long long expected = source.durationMs() * rate / 1000;
        QVERIFY2(expected > 0 && qAbs(samples - expected) < rate / 20,
                 qPrintable(QString("%1 samples, expected about %2").arg(samples).arg(expected)));
    }

    void audioRangesStartAtTheirFirstSample_data()
    {
        QTest::addColumn<QString>("media");
        QTest::addColumn<long long>("begin");
        for (const char *media : {"readers-blocks.flac", "readers-tone.mp3", "readers-tone.m4a"}) {
            for (long long begin : {500LL, 1733LL})
                QTest::newRow(QByteArray(media) + " from " + QByteArray::number(begin)) << QString(media) << begin;
        }
    }

    // Waveforms line up with video: an accurate seek starts the samples (u8 mono 48 kHz) at the time asked,
    // inside a codec frame, as ffmpeg's decode of the same range does.
    void audioRangesStartAtTheirFirstSample()
    {
        QFETCH(QString, media);
        QFETCH(long long, begin);
        const QByteArray expected = ScratchFiles::read(TestMedia::path(media + QString(".%1.u8").arg(begin)));
        QVERIFY(expected.size() > 40000);
        AudioSource source;
        QVERIFY(source.open(TestMedia::path(media), AV_SAMPLE_FMT_U8, 1, -1, 48000));
        QSharedPointer<IAudioFrame> frame = source.seekAndReadNextAdaptFrame(begin, true);
        QVERIFY(frame && frame->pts() == begin);
        QByteArray samples;
        for (; frame && samples.size() < expected.size(); frame = source.readNextAdaptFrame())
            samples.append(reinterpret_cast<const char *>(frame->data(0)), frame->samples());
        QVERIFY(samples.size() >= expected.size());
        // A one-sample shift moves more than a third of the samples by over 2 steps; AAC's first frame
        // after a seek has other history than ffmpeg's, so a few samples may differ.
        int differing = 0;
        for (int i = 0; i < expected.size(); ++i)
            differing += qAbs(int(uint8_t(samples[i])) - int(uint8_t(expected[i]))) > 2;
        QVERIFY2(differing < expected.size() / 50,
                 qPrintable(QString("%1 of %2 samples differ").arg(differing).arg(expected.size())));
    }

    void framesTheConverterRefusesAreSkipped()
    {
        // No frame converts to an unknown format: reads end at the stream's end instead of looping.
        LogCapture log;
        AudioSource source;
        QVERIFY(source.open(TestMedia::path("sine.wav"), AV_SAMPLE_FMT_NONE, 1, -1, 48000));
        QVERIFY(!source.readNextAdaptFrame());
        QVERIFY(!source.seekAndReadNextAdaptFrame(500, true));
        QVERIFY(source.revertSeekAndReadNextAdaptFrame(500, 0).isEmpty());
        QVERIFY(log.hasRecord("no SwrContext...") || log.hasRecordStartingWith("create buffer"));
    }

    void videoIsConvertedAndScaledToTheOutputWidth()
    {
        VideoSource source;
        QVERIFY(source.openVideo(TestMedia::path("readers-gop50.mp4"), kThumbFormats, 80));
        QVERIFY(source.isVideoAvailable() && !source.isCover());
        for (long long t : {4010LL, 1990LL, 0LL, 9999LL}) {
            const QSharedPointer<IVideoFrame> frame = source.seekAndReadNextAdaptFrame(t, true);
            QVERIFY(frame && frame->format() == AV_PIX_FMT_RGB24 && frame->frameSize() == QSize(80, 16));
            QCOMPARE(numberOf(frame), int(t / 40));
            QCOMPARE(source.curFramePts(), t / 40 * 40);
        }
        // A new width takes effect with the next frame; 0 keeps the source size.
        source.resetOutputWidth(40);
        QCOMPARE(source.seekAndReadNextAdaptFrame(4000, true)->frameSize(), QSize(40, 8));
        source.resetOutputWidth(0);
        QCOMPARE(source.seekAndReadNextAdaptFrame(2000, true)->frameSize(), QSize(160, 32));
        // An accepted format at the source size passes unconverted.
        VideoSource raw;
        QVERIFY(raw.openVideo(TestMedia::path("readers-gop50.mp4"), {AV_PIX_FMT_YUV420P}, 0));
        const QSharedPointer<IVideoFrame> frame = raw.seekAndReadNextAdaptFrame(1000, true);
        QVERIFY(frame && frame->format() == AV_PIX_FMT_YUV420P && numberOf(frame) == 25);
    }

    void videoGeometryRotationAlphaAndCovers()
    {
        // 1920 x 1080 turned by 90 degrees (the display matrix is read in tst_media): the turned width is asked.
        VideoSource rotated;
        QVERIFY(rotated.openVideo(TestMedia::path("readers-rotated.mp4"), kThumbFormats, 320));
        QCOMPARE(rotated.readNextAdaptFrame()->frameSize(), QSize(568, 320));
        // Frames with alpha take the second format; libvpx keeps WebM's alpha channel.
        VideoSource alpha;
        QVERIFY(alpha.openVideo(TestMedia::path("readers-alpha.webm"), kThumbFormats, 64));
        const QSharedPointer<IVideoFrame> rgba = alpha.readNextAdaptFrame();
        QVERIFY(rgba && rgba->format() == AV_PIX_FMT_RGBA);
        const uint8_t *pixel = rgba->data(0) + 24 * rgba->lineSize(0) + 32 * 4;
        QVERIFY2(pixel[3] > 100 && pixel[3] < 160, qPrintable(QString::number(pixel[3]))); // half transparent
        QVERIFY(pixel[0] > 200 && pixel[1] < 60 && pixel[2] < 60); // red
        // A cover picture is read, but is no available video.
        VideoSource cover;
        QVERIFY(cover.openVideo(TestMedia::path("readers-cover.mp3"), kThumbFormats, 32));
        QVERIFY(cover.isCover() && !cover.isVideoAvailable());
        QCOMPARE(cover.readNextAdaptFrame()->frameSize(), QSize(32, 32));
    }

    void badInputFailsCleanly_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<bool>("video");
        QTest::addColumn<int>("nth");
        QTest::newRow("missing") << TestMedia::path("readers-no-such-file.mp4") << true << -1;
        QTest::newRow("empty path") << QString() << false << -1;
        QTest::newRow("not media") << TestMedia::path("readers-garbage.mp4") << true << -1;
        QTest::newRow("no video") << TestMedia::path("readers-mono44.m4a") << true << -1;
        QTest::newRow("no audio") << TestMedia::path("readers-gop50.mp4") << false << -1;
        QTest::newRow("second video stream") << TestMedia::path("readers-gop50.mp4") << true << 1;
        QTest::newRow("second audio stream") << TestMedia::path("sample.mp4") << false << 1;
    }

    void badInputFailsCleanly()
    {
        QFETCH(QString, path);
        QFETCH(bool, video);
        QFETCH(int, nth);
        // A good file first: the failed open must close it.
        std::unique_ptr<FFStreamReader> reader(video ? static_cast<FFStreamReader *>(new FFVideoStreamReader)
                                                     : new FFAudioStreamReader);
        const AVMediaType type = video ? AVMEDIA_TYPE_VIDEO : AVMEDIA_TYPE_AUDIO;
        QVERIFY(reader->openStream(TestMedia::path("sample.mp4"), type, -1));
        QVERIFY(!reader->openStream(path, type, nth));
        QCOMPARE(reader->streamIndex(), -1);
        QVERIFY(!reader->readNextFrame());
        QVERIFY(!reader->seekAndReadNextFrame(1000, true));
        QCOMPARE(reader->durationMs() + reader->frameIntervalsMs(), 0LL);

        // The sources drop their reader the same way (the video source takes the best stream).
        VideoSource videoSource;
        AudioSource audioSource;
        QVERIFY(videoSource.openVideo(TestMedia::path("sample.mp4"), kThumbFormats, 80));
        QVERIFY(audioSource.open(TestMedia::path("sample.mp4"), AV_SAMPLE_FMT_U8, 1, -1, 48000));
        if (video && nth < 0) {
            QVERIFY(!videoSource.openVideo(path, kThumbFormats, 80));
            QVERIFY(!videoSource.readNextAdaptFrame() && videoSource.durationMs() == 0);
        } else if (!video) {
            QVERIFY(!audioSource.open(path, AV_SAMPLE_FMT_U8, 1, nth, 48000));
            QVERIFY(!audioSource.seekAndReadNextAdaptFrame(1000, true) && audioSource.durationMs() == 0);
        }
        // Hardware decoding is not available here.
        QVERIFY(!videoSource.openVideo_D3D(TestMedia::path("readers-gop50.mp4"), kThumbFormats, 80));
        QVERIFY(!videoSource.readNextAdaptFrame());
    }

    // Sources assert their thread in Debug; pickers detach them between runs for the next pool thread to take.
    void sourcesMoveToWorkersAndBack()
    {
        VideoSource video;
        AudioSource audio;
        QVERIFY(video.openVideo(TestMedia::path("readers-gop50.mp4"), kThumbFormats, 80));
        QVERIFY(audio.open(TestMedia::path("sample.mp4"), AV_SAMPLE_FMT_U8, 1, -1, 48000));
        QCOMPARE(numberOf(video.seekAndReadNextAdaptFrame(400, true)), 10);
        video.moveSelfToThread(nullptr);
        audio.moveSelfToThread(nullptr);
        int number = -1;
        long long pts = -1;
        std::atomic<bool> finished {false}; // the end as ThreadSanitizer sees it, unlike the wait inside Qt
        std::unique_ptr<QThread> worker(QThread::create([&] {
            video.moveSelfToThread(QThread::currentThread());
            audio.moveSelfToThread(QThread::currentThread());
            video.resetOutputWidth(40); // a new converter, made on the worker
            number = numberOf(video.seekAndReadNextAdaptFrame(6000, true));
            const QSharedPointer<IAudioFrame> samples = audio.seekAndReadNextAdaptFrame(1000, true);
            pts = samples ? samples->pts() : -1;
            video.moveSelfToThread(nullptr);
            audio.moveSelfToThread(nullptr);
            finished.store(true, std::memory_order_release);
        }));
        worker->start();
        QVERIFY(worker->wait(60000) && finished.load(std::memory_order_acquire));
        QCOMPARE(number, 150);
        QVERIFY(pts > 1000 - 2 * audio.frameInterval() && pts <= 1000);
        video.moveSelfToThread(QThread::currentThread());
        audio.moveSelfToThread(QThread::currentThread());
        QCOMPARE(video.readNextAdaptFrame()->frameSize(), QSize(40, 8));
        QVERIFY(audio.readNextAdaptFrame());
    }
};

QTEST_GUILESS_MAIN(TestReaders)
#include "tst_readers.moc"
