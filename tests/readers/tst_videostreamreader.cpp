#include "ReaderTestKit.h"
#include "TestMedia.h"

#include "VeloranDec/CVideoStreamInfo.h"
#include "VeloranDec/FFVideoStreamReader.h"

#include <QtTest>

using namespace Veloran;
using namespace ReaderTestKit;

class TestVideoStreamReader : public QObject
{
    Q_OBJECT

private:
    // Seeks accurately to each time and checks that the frame on screen at that time
    // comes back, by its burned-in number and by its time.
    void checkAccurateSeeks(FFVideoStreamReader &reader, const QVector<long long> &times,
                            const QVector<long long> &targets)
    {
        for (long long t : targets) {
            const AVFramePtr frame = reader.seekAndReadNextFrame(t, true);
            QVERIFY2(frame, qPrintable(QString("no frame at %1").arg(t)));
            const int expected = frameShownAt(times, t);
            QVERIFY2(frameNumber(frame.data()) == expected,
                     qPrintable(QString("at %1 ms got frame %2, expected %3").arg(t).arg(frameNumber(frame.data())).arg(expected)));
            QCOMPARE(frame->pts, times[expected]);
            QCOMPARE(frame->best_effort_timestamp, times[expected]);
        }
    }

    QVector<long long> aroundEveryFrame(const QVector<long long> &times, int every, QVector<long long> offsets)
    {
        QVector<long long> targets;
        for (int i = 0; i < times.size(); i += every) {
            for (long long offset : offsets)
                targets.append(times[i] + offset);
        }
        return targets;
    }

private slots:
    void opensTheBestVideoStream()
    {
        FFVideoStreamReader reader;
        QVERIFY(reader.openStream(TestMedia::path("readers-gop50.mp4"), AVMEDIA_TYPE_VIDEO, -1));
        QCOMPARE(reader.streamIndex(), 0);
        QCOMPARE(reader.mediaType(), int(AVMEDIA_TYPE_VIDEO));
        QVERIFY(reader.getStream());
        QCOMPARE(reader.getCodecParam()->width, 160);
        QCOMPARE(reader.frameIntervalsMs(), 40LL);
        QCOMPARE(reader.durationMs(), 10000LL);
        QVERIFY(reader.demuxDurationMs() >= 10000);
        QCOMPARE(reader.coderName(), QString("h264"));
        QVERIFY(reader.videoStreamInfo());
        QCOMPARE(reader.videoStreamInfo()->width, 160);
        QVERIFY(!reader.isAttachedPic());
        QVERIFY(!reader.hwFramesContext());
        QVERIFY(!reader.d3dDevice());
        // No audio: nothing to measure video times from.
        QVERIFY(reader.startTimeMs() < 0);

        FFVideoStreamReader byIndex;
        QVERIFY(byIndex.openStream(TestMedia::path("readers-gop50.mp4"), 0));
        QCOMPARE(byIndex.streamIndex(), 0);
    }

    void readsEveryFrameInOrder()
    {
        const QVector<long long> times = frameTimesMs("readers-gop50.mp4.v.txt");
        QCOMPARE(times.size(), 250);
        FFVideoStreamReader reader;
        QVERIFY(reader.openStream(TestMedia::path("readers-gop50.mp4"), AVMEDIA_TYPE_VIDEO, -1));
        for (int i = 0; i < times.size(); ++i) {
            const AVFramePtr frame = reader.readNextFrame();
            QVERIFY(frame);
            QCOMPARE(frameNumber(frame.data()), i);
            QCOMPARE(frame->pts, times[i]);
        }
        QVERIFY(!reader.readNextFrame());
        QVERIFY(!reader.readNextFrame());
        // A seek after the end of the stream starts decoding again.
        QVERIFY(reader.seekAndReadNextFrame(0, true));
    }

    void accurateSeekFindsTheFrameShown_data()
    {
        QTest::addColumn<QString>("media");
        QTest::addColumn<int>("every");
        QTest::newRow("keyframe every 2 s, B-frames") << "readers-gop50.mp4" << 1;
        QTest::newRow("one keyframe in 10 s") << "readers-longgop.mp4" << 7;
        QTest::newRow("29.97 fps") << "readers-ntsc.mp4" << 1;
    }

    void accurateSeekFindsTheFrameShown()
    {
        QFETCH(QString, media);
        QFETCH(int, every);
        const QVector<long long> times = frameTimesMs(media + ".v.txt");
        QVERIFY(times.size() > 100);
        FFVideoStreamReader reader;
        QVERIFY(reader.openStream(TestMedia::path(media), AVMEDIA_TYPE_VIDEO, -1));
        const long long interval = reader.frameIntervalsMs();
        // On the frame's first millisecond, inside it, and on its last millisecond
        // (just before the next frame, and so just before each keyframe).
        checkAccurateSeeks(reader, times, aroundEveryFrame(times, every, {0, interval / 2, interval - 1}));
        // Backwards and far jumps in one session.
        checkAccurateSeeks(reader, times, {times.last() - 1, 1, times[times.size() / 2] + 3, 0});
        // Past the end: the last frame stays on screen.
        checkAccurateSeeks(reader, times, {times.last() + 5000});
    }

    void inaccurateSeekReturnsTheLandingKeyframe()
    {
        const QVector<long long> times = frameTimesMs("readers-gop50.mp4.v.txt");
        FFVideoStreamReader reader;
        QVERIFY(reader.openStream(TestMedia::path("readers-gop50.mp4"), AVMEDIA_TYPE_VIDEO, -1));
        for (long long t : {100LL, 2500LL, 5990LL, 9000LL}) {
            const AVFramePtr frame = reader.seekAndReadNextFrame(t, false);
            QVERIFY(frame);
            const int number = frameNumber(frame.data());
            QCOMPARE(number % 50, 0);
            QCOMPARE(frame->pts, times[number]);
            QVERIFY(frame->pts <= t + 80);
        }
    }

    void videoTimesCountFromTheFirstAudioSample()
    {
        // Audio begins 1.5 s into the file: video times shift back by 1.5 s,
        // clamped at 0.
        FFVideoStreamReader reader;
        QVERIFY(reader.openStream(TestMedia::path("readers-late.mkv"), AVMEDIA_TYPE_VIDEO, -1));
        QCOMPARE(reader.startTimeMs(), 1500LL);
        for (int i = 0; i < 100; ++i) {
            const AVFramePtr frame = reader.readNextFrame();
            QVERIFY(frame);
            QCOMPARE(frameNumber(frame.data()), i);
            QCOMPARE(frame->pts, qMax(0LL, 40LL * i - 1500));
        }
        for (long long t : {40LL, 100LL, 530LL, 1000LL, 2000LL, 2479LL, 1200LL}) {
            const AVFramePtr frame = reader.seekAndReadNextFrame(t, true);
            QVERIFY(frame);
            QCOMPARE(frameNumber(frame.data()), int((t + 1500) / 40));
            QCOMPARE(frame->pts, (t + 1500) / 40 * 40 - 1500);
        }
    }

    void containerStartOffsetIsRemoved_data()
    {
        QTest::addColumn<QString>("media");
        QTest::addColumn<bool>("seekable");
        // Matroska indexes its keyframes; a transport stream is searched by
        // timestamp and lands between keyframes, so only its times are checked.
        QTest::newRow("Matroska from 1.4 s, audio 0.2 s later") << "readers-offset.mkv" << true;
        QTest::newRow("transport stream") << "readers-offset.ts" << false;
    }

    void containerStartOffsetIsRemoved()
    {
        QFETCH(QString, media);
        QFETCH(bool, seekable);
        const QVector<long long> audio = frameTimesMs(media + ".a.txt");
        QVERIFY(!audio.isEmpty());
        QVERIFY(audio.first() > 1000); // the container clock does not start at 0
        const QVector<long long> times = shifted(frameTimesMs(media + ".v.txt"), audio.first());
        QCOMPARE(times.size(), 100);
        FFVideoStreamReader reader;
        QVERIFY(reader.openStream(TestMedia::path(media), AVMEDIA_TYPE_VIDEO, -1));
        QCOMPARE(reader.startTimeMs(), audio.first());
        for (int i = 0; i < times.size(); ++i) {
            const AVFramePtr frame = reader.readNextFrame();
            QVERIFY(frame);
            QCOMPARE(frameNumber(frame.data()), i);
            QCOMPARE(frame->pts, times[i]);
        }
        if (seekable)
            checkAccurateSeeks(reader, times, {100, 1000, 1015, 2222, 3000, 3500, 500, 3770, 3790});
    }

    void framesWithoutTimestampsGetPredictedTimes()
    {
        // An elementary stream carries no timestamps: each frame gets the previous
        // time plus one frame interval.
        FFVideoStreamReader reader;
        QVERIFY(reader.openStream(TestMedia::path("readers-raw.h264"), AVMEDIA_TYPE_VIDEO, -1));
        QCOMPARE(reader.frameIntervalsMs(), 40LL);
        for (int i = 0; i < 50; ++i) {
            const AVFramePtr frame = reader.readNextFrame();
            QVERIFY(frame);
            QCOMPARE(frameNumber(frame.data()), i);
            QCOMPARE(frame->pts, 40LL * i);
        }

        FFVideoStreamReader mp4;
        QVERIFY(mp4.openStream(TestMedia::path("readers-gop50.mp4"), AVMEDIA_TYPE_VIDEO, -1));
        const AVFramePtr frame = mp4.seekAndReadNextFrame(1000, true);
        QCOMPARE(frame->pts, 1000LL);
        const AVFramePtr bare = makeAVFramePtr(av_frame_alloc());
        bare->best_effort_timestamp = AV_NOPTS_VALUE;
        mp4.resetPtsToMs(bare);
        QCOMPARE(bare->pts, 1040LL);
        QCOMPARE(bare->best_effort_timestamp, 1040LL);
        bare->best_effort_timestamp = AV_NOPTS_VALUE;
        mp4.resetPtsToMs(bare);
        QCOMPARE(bare->pts, 1080LL);
    }

    void revertReadsTheFramesBeforeATime()
    {
        const QVector<long long> times = frameTimesMs("readers-gop50.mp4.v.txt");
        FFVideoStreamReader reader;
        QVERIFY(reader.openStream(TestMedia::path("readers-gop50.mp4"), AVMEDIA_TYPE_VIDEO, -1));
        // ms -> the last frame of the run (the nearest one before ms).
        const QList<QPair<long long, int>> cases {{1010, 25}, {2020, 50}, {2041, 51}, {7990, 199}, {20, 0}};
        for (const auto &c : cases) {
            const QVector<AVFramePtr> frames = reader.revertSeekAndReadFrame(c.first, 0);
            QVERIFY(!frames.isEmpty());
            const int first = frameNumber(frames.first().data());
            QCOMPARE(first % 50, 0); // decoding starts at a keyframe
            for (int i = 0; i < frames.size(); ++i) {
                QCOMPARE(frameNumber(frames[i].data()), first + i);
                QCOMPARE(frames[i]->pts, times[first + i]);
                QVERIFY(frames[i]->pts < c.first);
            }
            QCOMPARE(frameNumber(frames.last().data()), c.second);
        }
        // On a keyframe's time the seek lands on that keyframe: the boundary steps
        // back until an earlier keyframe is reached.
        const QVector<AVFramePtr> atKeyframe = reader.revertSeekAndReadFrame(2000, 0);
        QVERIFY(!atKeyframe.isEmpty());
        QCOMPARE(frameNumber(atKeyframe.first().data()), 0);
        QVERIFY(atKeyframe.last()->pts < 2000);
        QVERIFY(frameNumber(atKeyframe.last().data()) >= 40);
        // Nothing lies before the first frame.
        QVERIFY(reader.revertSeekAndReadFrame(0, 0).isEmpty());
        // Reading goes on normally afterwards.
        QCOMPARE(frameNumber(reader.seekAndReadNextFrame(4000, true).data()), 100);
    }

    void coverPictureIsAnAttachedPicture()
    {
        FFVideoStreamReader reader;
        QVERIFY(reader.openStream(TestMedia::path("readers-cover.mp3"), AVMEDIA_TYPE_VIDEO, -1));
        QVERIFY(reader.isAttachedPic());
        QVERIFY(reader.readNextFrame());
    }

    void badInputFailsCleanly_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<int>("nth");
        QTest::newRow("missing") << TestMedia::path("readers-no-such-file.mp4") << -1;
        QTest::newRow("empty path") << QString() << -1;
        QTest::newRow("not media") << TestMedia::path("readers-garbage.mp4") << -1;
        QTest::newRow("no video") << TestMedia::path("readers-mono44.m4a") << -1;
        QTest::newRow("second video stream") << TestMedia::path("readers-gop50.mp4") << 1;
    }

    void badInputFailsCleanly()
    {
        QFETCH(QString, path);
        QFETCH(int, nth);
        FFVideoStreamReader reader;
        QVERIFY(!reader.openStream(path, AVMEDIA_TYPE_VIDEO, nth));
        QCOMPARE(reader.streamIndex(), -1);
        QVERIFY(!reader.getStream());
        QVERIFY(!reader.getCodecParam());
        QCOMPARE(reader.mediaType(), -1);
        QVERIFY(!reader.readNextFrame());
        QVERIFY(!reader.seekAndReadNextFrame(1000, true));
        QVERIFY(reader.revertSeekAndReadFrame(1000, 0).isEmpty());
        QCOMPARE(reader.durationMs(), 0LL);
        QCOMPARE(reader.demuxDurationMs(), 0LL);
        QCOMPARE(reader.frameIntervalsMs(), 0LL);
        QVERIFY(reader.coderName().isEmpty());
    }

    void failedReopenClosesTheReader()
    {
        FFVideoStreamReader reader;
        QVERIFY(reader.openStream(TestMedia::path("readers-gop50.mp4"), AVMEDIA_TYPE_VIDEO, -1));
        QVERIFY(!reader.openStream(TestMedia::path("readers-gop50.mp4"), 7));
        QCOMPARE(reader.streamIndex(), -1);
        QVERIFY(!reader.readNextFrame());
        QVERIFY(!reader.openStream_D3D(TestMedia::path("readers-gop50.mp4"), "NVIDIA"));
        QVERIFY(reader.openStream(TestMedia::path("readers-gop50.mp4"), 0));
        reader.close();
        QCOMPARE(reader.streamIndex(), -1);
        QVERIFY(!reader.readNextFrame());
    }

    void truncatedFileEndsEarly()
    {
        FFVideoStreamReader reader;
        QVERIFY(reader.openStream(TestMedia::path("readers-truncated.mp4"), AVMEDIA_TYPE_VIDEO, -1));
        int count = 0;
        while (reader.readNextFrame() && count < 1000)
            ++count;
        QVERIFY(count < 100);
        reader.seekAndReadNextFrame(3000, true);
        reader.revertSeekAndReadFrame(3000, 0);
    }
};

QTEST_GUILESS_MAIN(TestVideoStreamReader)
#include "tst_videostreamreader.moc"
