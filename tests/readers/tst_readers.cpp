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

// Seeks accurately to each time: the frame on screen then must come back, by its
// burned-in number and by its time.
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

// Reads the next frames: they come in order, numbered from 0, at the given times.
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
        // A seek after the end of the stream starts decoding again.
        QCOMPARE(frameNumber(reader.seekAndReadNextFrame(0, true).data()), 0);
        // An inaccurate seek gives the keyframe it lands on.
        for (long long t : {100LL, 2500LL, 5990LL}) {
            const AVFramePtr frame = reader.seekAndReadNextFrame(t, false);
            QVERIFY(frame);
            QCOMPARE(frameNumber(frame.data()), int(t / 2000 * 50));
        }
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

    // Accurate seeks give the frame on screen; what a player's "previous frame" reads
    // are the frames before a time, in order, the last of them the frame shown just
    // before it, never more than asked for.
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
            // On a frame's first millisecond, inside it, and on its last (just before the
            // next frame, and so just before each keyframe), however far apart frames are.
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
            QVERIFY2(frameNumber(frames.last().data()) == last,
                     qPrintable(where + QString(": frame %1, expected %2").arg(frameNumber(frames.last().data())).arg(last)));
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
        QVERIFY(firstSamples);
        QCOMPARE(firstSamples->pts, 0LL);

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
        QVector<long long> times;
        for (int i = 0; i < 50; ++i)
            times << 40LL * i;
        checkReadsInOrder(reader, times);
    }

    void backwardReadsHoldWhatWasAskedFor()
    {
        // The source gives the frames nearest first, converted, and keeps its current
        // frame. The long-GOP file has its key frame at 0: 125 frames lie before 5 s.
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

    void audioSeeksFindTheFrameCoveringTheTime_data()
    {
        QTest::addColumn<QString>("media");
        QTest::addColumn<long long>("interval");
        QTest::newRow("AAC 48 kHz") << "sample.mp4" << 21LL;
        QTest::newRow("AAC 44.1 kHz") << "readers-mono44.m4a" << 23LL;
        QTest::newRow("AC-3, no frame size in Matroska") << "readers-surround.mka" << 40LL;
        QTest::newRow("PCM, no frame size") << "sine.wav" << 40LL;
    }

    void audioSeeksFindTheFrameCoveringTheTime()
    {
        QFETCH(QString, media);
        QFETCH(long long, interval);
        FFAudioStreamReader reader;
        QVERIFY(reader.openStream(TestMedia::path(media), AVMEDIA_TYPE_AUDIO, -1));
        QCOMPARE(reader.frameIntervalsMs(), interval);
        for (long long t : {1000LL, 250LL, 1500LL, 777LL}) {
            const AVFramePtr frame = reader.seekAndReadNextFrame(t, true);
            QVERIFY(frame);
            const long long length = frame->nb_samples * 1000LL / frame->sample_rate;
            QVERIFY2(frame->pts <= t && t <= frame->pts + length + 1,
                     qPrintable(QString("at %1: frame %2 + %3").arg(t).arg(frame->pts).arg(length)));
        }
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

    // Waveforms line up with video frames: an accurate seek starts the samples at the
    // time asked for, inside a codec frame, as ffmpeg's decode of the same range does
    // (as 8-bit mono at 48 kHz, the form the waveforms are made from).
    void audioRangesStartAtTheirFirstSample()
    {
        QFETCH(QString, media);
        QFETCH(long long, begin);
        const QByteArray expected = ScratchFiles::read(TestMedia::path(media + QString(".%1.u8").arg(begin)));
        QVERIFY(expected.size() > 40000);
        AudioSource source;
        QVERIFY(source.open(TestMedia::path(media), AV_SAMPLE_FMT_U8, 1, -1, 48000));
        QSharedPointer<IAudioFrame> frame = source.seekAndReadNextAdaptFrame(begin, true);
        QVERIFY(frame);
        QCOMPARE(frame->pts(), begin);
        QByteArray samples;
        for (; frame && samples.size() < expected.size(); frame = source.readNextAdaptFrame())
            samples.append(reinterpret_cast<const char *>(frame->data(0)), frame->samples());
        QVERIFY(samples.size() >= expected.size());
        // A shift of a single sample moves a 440 Hz tone at 48 kHz by up to 7 steps,
        // and by more than 2 at a third of the samples. AAC decodes its first frame
        // after a seek from other history than ffmpeg does: a few samples differ.
        int differing = 0;
        for (int i = 0; i < expected.size(); ++i)
            differing += qAbs(int(uint8_t(samples[i])) - int(uint8_t(expected[i]))) > 2;
        QVERIFY2(differing < expected.size() / 50,
                 qPrintable(QString("%1 of %2 samples differ").arg(differing).arg(expected.size())));
    }

    void audioBecomesTheRequestedFormat_data()
    {
        QTest::addColumn<QString>("media");
        QTest::addColumn<int>("format");
        QTest::addColumn<int>("channels");
        QTest::addColumn<int>("rate");
        QTest::newRow("mono 44.1k to u8 mono 48k") << "readers-mono44.m4a" << int(AV_SAMPLE_FMT_U8) << 1 << 48000;
        QTest::newRow("5.1 48k to s16 stereo 44.1k") << "readers-surround.mka" << int(AV_SAMPLE_FMT_S16) << 2 << 44100;
        QTest::newRow("mono 44.1k to float planar 5.1") << "readers-mono44.m4a" << int(AV_SAMPLE_FMT_FLTP) << 6 << 48000;
    }

    void audioBecomesTheRequestedFormat()
    {
        QFETCH(QString, media);
        QFETCH(int, format);
        QFETCH(int, channels);
        QFETCH(int, rate);
        AudioSource source;
        QVERIFY(source.open(TestMedia::path(media), AVSampleFormat(format), channels, -1, rate));
        long long samples = 0;
        long long lastPts = -1;
        while (const QSharedPointer<IAudioFrame> frame = source.readNextAdaptFrame()) {
            QCOMPARE(frame->format(), format);
            QCOMPARE(frame->toAVFrame()->ch_layout.nb_channels, channels);
            QCOMPARE(frame->sampleRate(), rate);
            QVERIFY(frame->pts() > lastPts);
            lastPts = frame->pts();
            samples += frame->samples();
        }
        // The resampler keeps a few samples back; everything else comes out.
        const long long expected = source.durationMs() * rate / 1000;
        QVERIFY2(expected > 0 && qAbs(samples - expected) < rate / 20,
                 qPrintable(QString("%1 samples, expected about %2").arg(samples).arg(expected)));

        // After a seek: the frame covering the time, carrying the signal.
        const QSharedPointer<IAudioFrame> frame = source.seekAndReadNextAdaptFrame(1000, true);
        QVERIFY(frame && frame->pts() <= 1000 && frame->pts() > 1000 - 2 * source.frameInterval());
        QCOMPARE(source.curPts(), frame->pts());
        if (format == AV_SAMPLE_FMT_U8) {
            const auto [low, high] = std::minmax_element(frame->data(0), frame->data(0) + frame->samples());
            QVERIFY(*low < 128 && *high > 128); // a sine around the unsigned middle
        }
    }

    void framesTheConverterRefusesAreSkipped()
    {
        // Nothing converts to an unknown output format: every frame is refused, and
        // the read ends at the end of the stream instead of looping.
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
            QVERIFY(frame);
            QCOMPARE(frame->format(), int(AV_PIX_FMT_RGB24));
            QCOMPARE(frame->frameSize(), QSize(80, 16));
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
        QCOMPARE(frame->format(), int(AV_PIX_FMT_YUV420P));
        QCOMPARE(numberOf(frame), 25);
    }

    void videoGeometryRotationAlphaAndCovers()
    {
        // 1920 x 1080 turned by 90 degrees: the turned width is the requested one.
        VideoSource rotated;
        QVERIFY(rotated.openVideo(TestMedia::path("readers-rotated.mp4"), kThumbFormats, 320));
        QCOMPARE(rotated.getRotation(), 90);
        QCOMPARE(rotated.readNextAdaptFrame()->frameSize(), QSize(568, 320));
        VideoSource upright;
        QVERIFY(upright.openVideo(TestMedia::path("readers-wide.mp4"), kThumbFormats, 320));
        QCOMPARE(upright.readNextAdaptFrame()->frameSize(), QSize(320, 180));
        // Frames with alpha take the second format; libvpx keeps WebM's alpha channel.
        VideoSource alpha;
        QVERIFY(alpha.openVideo(TestMedia::path("readers-alpha.webm"), kThumbFormats, 64));
        const QSharedPointer<IVideoFrame> rgba = alpha.readNextAdaptFrame();
        QCOMPARE(rgba->format(), int(AV_PIX_FMT_RGBA));
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

    void truncatedFileReadsWhatItHas()
    {
        VideoSource source;
        QVERIFY(source.openVideo(TestMedia::path("readers-truncated.mp4"), kThumbFormats, 80));
        int count = 0;
        while (source.readNextAdaptFrame() && count < 1000)
            ++count;
        QVERIFY(count > 0 && count < 100);
        QVERIFY(!source.seekAndReadNextAdaptFrame(3500, true) || source.curFramePts() < 3500);
        source.revertSeekAndReadNextAdaptFrame(3500, 0);
    }

    // The sources, their readers and adapters assert in Debug builds that they are
    // used on their own thread. Pickers leave them detached between runs and the pool
    // thread that runs next takes them up: moving them must move all.
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
