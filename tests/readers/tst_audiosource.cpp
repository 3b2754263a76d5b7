#include "LogCapture.h"
#include "TestMedia.h"

#include "VeloranDec/AudioSource.h"
#include "VeloranDec/IAudioFrame.h"

#include <QtTest>

using namespace Veloran;

class TestAudioSource : public QObject
{
    Q_OBJECT

private slots:
    void anyLayoutBecomesTheRequestedFormat_data()
    {
        QTest::addColumn<QString>("media");
        QTest::addColumn<int>("format");
        QTest::addColumn<int>("channels");
        QTest::addColumn<int>("rate");
        QTest::newRow("mono 44.1k to u8 mono 48k") << "readers-mono44.m4a" << int(AV_SAMPLE_FMT_U8) << 1 << 48000;
        QTest::newRow("stereo 48k to u8 mono 48k") << "sample.mp4" << int(AV_SAMPLE_FMT_U8) << 1 << 48000;
        QTest::newRow("5.1 48k to u8 mono 48k") << "readers-surround.mka" << int(AV_SAMPLE_FMT_U8) << 1 << 48000;
        QTest::newRow("5.1 48k to s16 stereo 44.1k") << "readers-surround.mka" << int(AV_SAMPLE_FMT_S16) << 2 << 44100;
        QTest::newRow("mono 44.1k to float planar 5.1 48k")
            << "readers-mono44.m4a" << int(AV_SAMPLE_FMT_FLTP) << 6 << 48000;
        QTest::newRow("PCM stereo") << "sine.wav" << int(AV_SAMPLE_FMT_S16) << 2 << 48000;
    }

    void anyLayoutBecomesTheRequestedFormat()
    {
        QFETCH(QString, media);
        QFETCH(int, format);
        QFETCH(int, channels);
        QFETCH(int, rate);
        AudioSource source;
        QCOMPARE(source.curPts(), 0LL);
        QVERIFY(!source.currentAdaptFrame());
        QVERIFY(source.open(TestMedia::path(media), AVSampleFormat(format), channels, -1, rate));
        QVERIFY(source.currentStreamIndex() >= 0);
        const long long duration = source.durationMs();
        QVERIFY(duration >= 1900);
        QVERIFY(source.frameInterval() > 0);

        long long samples = 0;
        long long lastPts = -1;
        int frames = 0;
        while (const QSharedPointer<IAudioFrame> frame = source.readNextAdaptFrame()) {
            const AVFramePtr raw = frame->toAVFrame();
            QCOMPARE(frame->format(), format);
            QCOMPARE(raw->ch_layout.nb_channels, channels);
            QCOMPARE(frame->sampleRate(), rate);
            QVERIFY(frame->pts() > lastPts);
            lastPts = frame->pts();
            QCOMPARE(source.curPts(), lastPts);
            samples += frame->samples();
            ++frames;
        }
        QVERIFY(frames > 10);
        // The resampler keeps a few samples back; everything else comes out.
        const long long expected = duration * rate / 1000;
        QVERIFY2(qAbs(samples - expected) < rate / 20,
                 qPrintable(QString("%1 samples, expected about %2").arg(samples).arg(expected)));
    }

    void convertedSamplesCarryTheSignal()
    {
        AudioSource source;
        QVERIFY(source.open(TestMedia::path("sine.wav"), AV_SAMPLE_FMT_U8, 1, -1, 48000));
        const QSharedPointer<IAudioFrame> frame = source.seekAndReadNextAdaptFrame(500, true);
        QVERIFY(frame);
        int low = 255, high = 0;
        for (int i = 0; i < frame->samples(); ++i) {
            low = qMin(low, int(frame->data(0)[i]));
            high = qMax(high, int(frame->data(0)[i]));
        }
        // A sine around the unsigned middle value 128.
        QVERIFY(low < 128 && high > 128);
        QVERIFY(high - low > 30);
    }

    void accurateSeekLandsOnTheCoveringFrame()
    {
        AudioSource source;
        QVERIFY(source.open(TestMedia::path("readers-mono44.m4a"), AV_SAMPLE_FMT_U8, 1, -1, 48000));
        QCOMPARE(source.frameInterval(), 23LL);
        for (long long t : {1000LL, 300LL, 1700LL}) {
            const QSharedPointer<IAudioFrame> frame = source.seekAndReadNextAdaptFrame(t, true);
            QVERIFY(frame);
            QVERIFY(frame->pts() <= t);
            QVERIFY(frame->pts() > t - 2 * source.frameInterval());
            QCOMPARE(source.curPts(), frame->pts());
            QCOMPARE(source.currentAdaptFrame()->pts(), frame->pts());
        }
    }

    void revertReturnsTheFramesBeforeNearestFirst()
    {
        AudioSource source;
        QVERIFY(source.open(TestMedia::path("sample.mp4"), AV_SAMPLE_FMT_U8, 1, -1, 48000));
        const QVector<QSharedPointer<IAudioFrame>> frames = source.revertSeekAndReadNextAdaptFrame(1000, 0);
        QVERIFY(frames.size() > 1);
        for (int i = 0; i < frames.size(); ++i) {
            QVERIFY(frames[i]->pts() < 1000);
            QCOMPARE(frames[i]->format(), int(AV_SAMPLE_FMT_U8));
            if (i > 0)
                QVERIFY(frames[i]->pts() < frames[i - 1]->pts());
        }
        QVERIFY(frames.first()->pts() >= 1000 - 2 * source.frameInterval());
        // The current frame is not touched.
        QCOMPARE(source.curPts(), 0LL);
        QVERIFY(!source.currentAdaptFrame());
    }

    void framesTheConverterRefusesAreSkipped()
    {
        // Nothing can be converted to an unknown output format: every frame is
        // refused, and the read ends at the end of the stream instead of looping.
        LogCapture log;
        AudioSource source;
        QVERIFY(source.open(TestMedia::path("sine.wav"), AV_SAMPLE_FMT_NONE, 1, -1, 48000));
        QVERIFY(!source.readNextAdaptFrame());
        QVERIFY(!source.seekAndReadNextAdaptFrame(500, true));
        QVERIFY(source.revertSeekAndReadNextAdaptFrame(500, 0).isEmpty());
        QVERIFY(!source.currentAdaptFrame());
        QCOMPARE(source.curPts(), 0LL);
        // Refused either for want of a resampler or of an output buffer.
        QVERIFY(log.hasRecord("no SwrContext...") || log.hasRecordStartingWith("create buffer"));
    }

    void adaptFrameMakesAConverterFromTheFirstFrame()
    {
        AudioSource source;
        QVERIFY(!source.adaptFrame(AVFramePtr()));
        // Without an opened stream the frame itself describes the input.
        QVERIFY(source.open(TestMedia::path("readers-gop50.mp4"), AV_SAMPLE_FMT_S16, 2, -1, 44100) == false);
        const AVFramePtr frame = makeAVFramePtr(av_frame_alloc());
        frame->format = AV_SAMPLE_FMT_FLT;
        frame->sample_rate = 48000;
        frame->nb_samples = 4800;
        av_channel_layout_default(&frame->ch_layout, 1);
        QCOMPARE(av_frame_get_buffer(frame.data(), 0), 0);
        memset(frame->data[0], 0, size_t(frame->linesize[0]));
        frame->pts = 0;
        const AVFramePtr converted = source.adaptFrame(frame);
        QVERIFY(converted);
        QCOMPARE(converted->format, int(AV_SAMPLE_FMT_S16));
        QCOMPARE(converted->ch_layout.nb_channels, 2);
        QCOMPARE(converted->sample_rate, 44100);
    }

    void missingAudioFailsCleanly_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<int>("nth");
        QTest::newRow("video only") << TestMedia::path("readers-gop50.mp4") << -1;
        QTest::newRow("second audio stream") << TestMedia::path("sample.mp4") << 1;
        QTest::newRow("missing") << TestMedia::path("readers-no-such-file.m4a") << -1;
        QTest::newRow("not media") << TestMedia::path("readers-garbage.mp4") << -1;
    }

    void missingAudioFailsCleanly()
    {
        QFETCH(QString, path);
        QFETCH(int, nth);
        AudioSource source;
        QVERIFY(source.open(TestMedia::path("sample.mp4"), AV_SAMPLE_FMT_U8, 1, -1, 48000));
        QVERIFY(source.readNextAdaptFrame());
        QVERIFY(!source.open(path, AV_SAMPLE_FMT_U8, 1, nth, 48000));
        QCOMPARE(source.currentStreamIndex(), -1);
        QVERIFY(!source.readNextAdaptFrame());
        QVERIFY(!source.seekAndReadNextAdaptFrame(1000, true));
        QVERIFY(source.revertSeekAndReadNextAdaptFrame(1000, 0).isEmpty());
        QCOMPARE(source.durationMs(), 0LL);
        QCOMPARE(source.frameInterval(), 0LL);
    }
};

QTEST_GUILESS_MAIN(TestAudioSource)
#include "tst_audiosource.moc"
