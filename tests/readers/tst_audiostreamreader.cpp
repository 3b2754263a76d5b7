#include "ReaderTestKit.h"
#include "TestMedia.h"

#include "VeloranDec/CAudioStreamInfo.h"
#include "VeloranDec/FFAudioStreamReader.h"

#include <QtTest>

using namespace Veloran;
using namespace ReaderTestKit;

class TestAudioStreamReader : public QObject
{
    Q_OBJECT

private slots:
    void frameIntervalFollowsTheCodecFrameSize_data()
    {
        QTest::addColumn<QString>("media");
        QTest::addColumn<long long>("interval");
        QTest::newRow("AAC 48 kHz") << "sample.mp4" << 21LL;
        QTest::newRow("AAC 44.1 kHz") << "readers-mono44.m4a" << 23LL;
        QTest::newRow("AC-3, no frame size in Matroska") << "readers-surround.mka" << 40LL;
        QTest::newRow("PCM, no frame size") << "sine.wav" << 40LL;
    }

    void frameIntervalFollowsTheCodecFrameSize()
    {
        QFETCH(QString, media);
        QFETCH(long long, interval);
        FFAudioStreamReader reader;
        QVERIFY(reader.openStream(TestMedia::path(media), AVMEDIA_TYPE_AUDIO, -1));
        QCOMPARE(reader.frameIntervalsMs(), interval);
        QCOMPARE(reader.mediaType(), int(AVMEDIA_TYPE_AUDIO));
        QVERIFY(reader.audioStreamInfo());
        QCOMPARE(reader.audioStreamInfo()->index, reader.streamIndex());
        // Matroska gives no duration per stream; the container has one.
        QVERIFY(qMax(reader.durationMs(), reader.demuxDurationMs()) >= 1900);
    }

    void startTimeIsTheFirstAudioSample_data()
    {
        QTest::addColumn<QString>("media");
        QTest::addColumn<long long>("start");
        QTest::newRow("audio only, 1.5 s late") << "readers-late-audio.mka" << 1500LL;
        QTest::newRow("beside video, 1.5 s late") << "readers-late.mkv" << 1500LL;
        QTest::newRow("transport stream clock")
            << "readers-offset.ts" << frameTimesMs("readers-offset.ts.a.txt").value(0, -1);
        QTest::newRow("container clock from 1.4 s")
            << "readers-offset.mkv" << frameTimesMs("readers-offset.mkv.a.txt").value(0, -1);
        QTest::newRow("starts at 0") << "sine.wav" << 0LL;
    }

    void startTimeIsTheFirstAudioSample()
    {
        QFETCH(QString, media);
        QFETCH(long long, start);
        FFAudioStreamReader reader;
        QVERIFY(reader.openStream(TestMedia::path(media), AVMEDIA_TYPE_AUDIO, -1));
        QCOMPARE(reader.startTimeMs(), start);
        // Reading starts again from the beginning, at time 0.
        const AVFramePtr first = reader.readNextFrame();
        QVERIFY(first);
        QCOMPARE(first->pts, 0LL);
        QCOMPARE(first->best_effort_timestamp, 0LL);
    }

    void framesFollowEachOtherWithoutGaps()
    {
        FFAudioStreamReader reader;
        QVERIFY(reader.openStream(TestMedia::path("sine.wav"), AVMEDIA_TYPE_AUDIO, -1));
        long long samples = 0;
        while (const AVFramePtr frame = reader.readNextFrame()) {
            QCOMPARE(frame->pts, av_rescale(samples, 1000, 48000));
            samples += frame->nb_samples;
        }
        QCOMPARE(samples, 96000LL);
    }

    void framesWithoutTimestampsContinueFromTheLastOne()
    {
        FFAudioStreamReader reader;
        QVERIFY(reader.openStream(TestMedia::path("sine.wav"), AVMEDIA_TYPE_AUDIO, -1));
        const AVFramePtr first = reader.readNextFrame();
        QVERIFY(first);
        QCOMPARE(first->pts, 0LL);
        const int firstSamples = first->nb_samples;
        const AVFramePtr bare = makeAVFramePtr(av_frame_alloc());
        bare->pts = AV_NOPTS_VALUE;
        bare->nb_samples = 1024;
        reader.resetPtsToMs(bare);
        QCOMPARE(bare->pts, av_rescale_q(firstSamples, AVRational {1, 48000}, AVRational {1, 1000}));
        QCOMPARE(bare->best_effort_timestamp, bare->pts);
        bare->pts = AV_NOPTS_VALUE;
        reader.resetPtsToMs(bare);
        QCOMPARE(bare->pts, av_rescale_q(firstSamples + 1024, AVRational {1, 48000}, AVRational {1, 1000}));

        // After a seek the prediction starts at the seek position.
        reader.seek(1000);
        bare->pts = AV_NOPTS_VALUE;
        reader.resetPtsToMs(bare);
        QCOMPARE(bare->pts, 1000LL);
        bare->pts = AV_NOPTS_VALUE;
        reader.resetPtsToMs(bare);
        QCOMPARE(bare->pts, 1021LL); // 1024 samples at 48 kHz are 21.3 ms
    }

    void accurateSeekReturnsTheFrameCoveringTheTime_data()
    {
        QTest::addColumn<QString>("media");
        QTest::newRow("PCM") << "sine.wav";
        QTest::newRow("AAC 44.1 kHz") << "readers-mono44.m4a";
        QTest::newRow("AC-3") << "readers-surround.mka";
        QTest::newRow("late start") << "readers-late-audio.mka";
    }

    void accurateSeekReturnsTheFrameCoveringTheTime()
    {
        QFETCH(QString, media);
        FFAudioStreamReader reader;
        QVERIFY(reader.openStream(TestMedia::path(media), AVMEDIA_TYPE_AUDIO, -1));
        for (long long t : {1000LL, 250LL, 1500LL, 777LL}) {
            const AVFramePtr frame = reader.seekAndReadNextFrame(t, true);
            QVERIFY(frame);
            const long long length = frame->nb_samples * 1000LL / frame->sample_rate;
            QVERIFY2(frame->pts <= t && t <= frame->pts + length + 1,
                     qPrintable(QString("at %1: frame %2 + %3").arg(t).arg(frame->pts).arg(length)));
        }
    }

    void revertReadsTheFramesBeforeATime()
    {
        FFAudioStreamReader reader;
        QVERIFY(reader.openStream(TestMedia::path("readers-mono44.m4a"), AVMEDIA_TYPE_AUDIO, -1));
        const QVector<AVFramePtr> frames = reader.revertSeekAndReadFrame(1000, true, 0);
        QVERIFY(!frames.isEmpty());
        for (int i = 0; i < frames.size(); ++i) {
            QVERIFY(frames[i]->pts < 1000);
            if (i > 0)
                QVERIFY(frames[i]->pts > frames[i - 1]->pts);
        }
        QVERIFY(frames.last()->pts >= 1000 - 2 * reader.frameIntervalsMs());
        QVERIFY(reader.revertSeekAndReadFrame(0, true, 0).isEmpty());
    }

    void missingStreamsFail()
    {
        FFAudioStreamReader reader;
        QVERIFY(!reader.openStream(TestMedia::path("sample.mp4"), AVMEDIA_TYPE_AUDIO, 1));
        QCOMPARE(reader.streamIndex(), -1);
        QVERIFY(!reader.readNextFrame());
        QCOMPARE(reader.frameIntervalsMs(), 0LL);
        QVERIFY(!reader.openStream(TestMedia::path("readers-gop50.mp4"), AVMEDIA_TYPE_AUDIO, -1));
        QVERIFY(!reader.openStream(TestMedia::path("readers-no-such-file.wav"), AVMEDIA_TYPE_AUDIO, -1));
        QVERIFY(!reader.openStream(TestMedia::path("readers-garbage.mp4"), AVMEDIA_TYPE_AUDIO, -1));
        QVERIFY(!reader.seekAndReadNextFrame(500, true));
        QVERIFY(reader.revertSeekAndReadFrame(500, true, 0).isEmpty());
        QCOMPARE(reader.durationMs(), 0LL);
        // The nth audio stream by number, and by container index.
        QVERIFY(reader.openStream(TestMedia::path("sample.mp4"), AVMEDIA_TYPE_AUDIO, 0));
        QCOMPARE(reader.streamIndex(), 1);
        QVERIFY(reader.openStream(TestMedia::path("sample.mp4"), 1));
        QCOMPARE(reader.streamIndex(), 1);
        QVERIFY(!reader.openStream(TestMedia::path("sample.mp4"), 2));
        QCOMPARE(reader.streamIndex(), -1);
    }
};

QTEST_GUILESS_MAIN(TestAudioStreamReader)
#include "tst_audiostreamreader.moc"
