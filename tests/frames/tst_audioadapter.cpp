#include "LogCapture.h"
#include "TestFrames.h"

#include "VeloranDec/Adapter/FFAudioAdapter.h"

#include <QtTest>

#include <algorithm>
#include <cmath>

using namespace Veloran;

namespace {

const QString kSourcePath = QStringLiteral("VeloranDec/Adapter/FFAudioAdapter");

bool setUp(FFAudioAdapter &adapter, int inRate, AVSampleFormat inFormat, uint64_t inMask, int outRate,
           int outChannels, AVSampleFormat outFormat)
{
    AVChannelLayout layout = TestFrames::layoutOf(inMask);
    return adapter.setupContext(inRate, layout.nb_channels, inFormat, layout, outRate, outChannels, outFormat);
}

} // namespace

class TstAudioAdapter : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void frameAlreadyInOutputFormIsPassedThrough()
    {
        FFAudioAdapter adapter;
        QVERIFY(!adapter.adapt(AVFramePtr()));
        QVERIFY(setUp(adapter, 48000, AV_SAMPLE_FMT_S16, AV_CH_LAYOUT_STEREO, 48000, 2, AV_SAMPLE_FMT_S16));
        const AVFramePtr frame = TestFrames::silentAudio(AV_SAMPLE_FMT_S16, TestFrames::layoutOf(AV_CH_LAYOUT_STEREO),
                                                         48000, 1024);
        LogCapture capture;
        QCOMPARE(adapter.adapt(frame).data(), frame.data());
        QVERIFY(capture.recordTexts().isEmpty());
    }

    void withoutResamplerNothingIsConverted()
    {
        FFAudioAdapter adapter;
        LogCapture capture;
        const AVFramePtr frame = TestFrames::silentAudio(AV_SAMPLE_FMT_S16, TestFrames::layoutOf(AV_CH_LAYOUT_STEREO),
                                                         48000, 1024);
        QVERIFY(!adapter.adapt(frame));
        QCOMPARE(capture.recordTexts(), QStringList("no SwrContext..."));
        QCOMPARE(capture.records().first().sourcePath(), kSourcePath);
        QCOMPARE(capture.records().first().function(),
                 QStringLiteral("Veloran::AVFramePtr Veloran::FFAudioAdapter::adapt(Veloran::AVFramePtr)"));
    }

    void stereoS16IsResampledToMonoU8()
    {
        FFAudioAdapter adapter;
        QVERIFY(setUp(adapter, 44100, AV_SAMPLE_FMT_S16, AV_CH_LAYOUT_STEREO, 48000, 1, AV_SAMPLE_FMT_U8));
        // 100 ms of a 441 Hz tone at half scale, the same on both channels.
        const int samples = 4410;
        const AVFramePtr in = TestFrames::s16Audio(TestFrames::layoutOf(AV_CH_LAYOUT_STEREO), 44100, samples,
                                                   [](int i, int) { return int16_t(16384 * std::sin(2 * M_PI * i / 100.0)); });
        in->pts = 1500;
        in->pkt_dts = 1480;

        LogCapture capture;
        const AVFramePtr out = adapter.adapt(in);
        QVERIFY(out);
        QVERIFY(capture.recordTexts().isEmpty());
        QCOMPARE(out->format, int(AV_SAMPLE_FMT_U8));
        QCOMPARE(out->sample_rate, 48000);
        QCOMPARE(out->ch_layout.nb_channels, 1);
        QVERIFY2(qAbs(out->nb_samples - 4800) < 64, qPrintable(QString::number(out->nb_samples)));
        QCOMPARE(out->pts, 1500);
        QCOMPARE(out->pkt_dts, 1480);
        QCOMPARE(out->best_effort_timestamp, 1500);

        // Equal channels mix down to the same level: +-0.5 of full scale around the
        // unsigned midpoint 128, still oscillating at 441 Hz.
        int low = 255, high = 0, crossings = 0;
        const uint8_t *mono = out->data[0];
        for (int i = 200; i < out->nb_samples; ++i) {
            low = qMin(low, int(mono[i]));
            high = qMax(high, int(mono[i]));
            if ((mono[i - 1] < 128) != (mono[i] < 128))
                ++crossings;
        }
        QVERIFY2(qAbs(low - 64) <= 3 && qAbs(high - 192) <= 3, qPrintable(QStringLiteral("%1..%2").arg(low).arg(high)));
        const double expectedCrossings = 2.0 * 441 * (out->nb_samples - 200) / 48000;
        QVERIFY2(qAbs(crossings - expectedCrossings) <= 3, qPrintable(QString::number(crossings)));
    }

    void planarFrameWithMissingPlaneIsRefused()
    {
        FFAudioAdapter adapter;
        QVERIFY(setUp(adapter, 48000, AV_SAMPLE_FMT_S16P, AV_CH_LAYOUT_STEREO, 44100, 2, AV_SAMPLE_FMT_S16));
        const AVFramePtr frame = TestFrames::silentAudio(AV_SAMPLE_FMT_S16P, TestFrames::layoutOf(AV_CH_LAYOUT_STEREO),
                                                         48000, 960);
        // Both planes there: left and right keep their own levels, interleaved.
        std::fill_n(reinterpret_cast<int16_t *>(frame->data[0]), 960, int16_t(1000));
        std::fill_n(reinterpret_cast<int16_t *>(frame->data[1]), 960, int16_t(-3000));
        const AVFramePtr out = adapter.adapt(frame);
        QVERIFY(out);
        QCOMPARE(out->format, int(AV_SAMPLE_FMT_S16));
        const auto *interleaved = reinterpret_cast<const int16_t *>(out->data[0]);
        for (int i = 50; i < out->nb_samples - 50; ++i) {
            QVERIFY(qAbs(interleaved[2 * i] - 1000) <= 2);
            QVERIFY(qAbs(interleaved[2 * i + 1] + 3000) <= 2);
        }

        uint8_t *second = frame->data[1];
        frame->data[1] = nullptr;
        LogCapture capture;
        QVERIFY(!adapter.adapt(frame));
        frame->data[1] = second;
        QCOMPARE(capture.recordTexts(),
                 QStringList("---player--- channels ,format and data isn't match: mInChannels = 2,"
                             "mInFormat(planar) = 6,frame->data[1] is null"));
        QCOMPARE(capture.records().first().sourcePath(), kSourcePath);
    }

    void changedRateRebuildsFromTheFrame()
    {
        FFAudioAdapter adapter;
        QVERIFY(setUp(adapter, 44100, AV_SAMPLE_FMT_S16, AV_CH_LAYOUT_STEREO, 48000, 2, AV_SAMPLE_FMT_S16));
        const AVChannelLayout stereo = TestFrames::layoutOf(AV_CH_LAYOUT_STEREO);
        const auto levels = [](int, int c) { return int16_t(c == 0 ? 8000 : -8000); };

        LogCapture capture;
        const AVFramePtr out = adapter.adapt(TestFrames::s16Audio(stereo, 32000, 3200, levels));
        QVERIFY(out);
        QCOMPARE(capture.recordTexts(),
                 QStringList("---player--- demux and frame param isn't match: mInFormat = 1,frame->format = 1,"
                             "mInChannels = 2,frame->channels = 2,mInSampleRate = 44100,frame->sample_rate = 32000"));
        QCOMPARE(out->sample_rate, 48000);
        QCOMPARE(out->ch_layout.nb_channels, 2);
        QVERIFY2(qAbs(out->nb_samples - 4800) < 64, qPrintable(QString::number(out->nb_samples)));
        // Converted as 32 kHz input: the channels keep their own constant levels.
        const auto *samples = reinterpret_cast<const int16_t *>(out->data[0]);
        for (int i = 100; i < out->nb_samples - 100; ++i) {
            QVERIFY(qAbs(samples[2 * i] - 8000) <= 8);
            QVERIFY(qAbs(samples[2 * i + 1] + 8000) <= 8);
        }

        // The rebuilt resampler serves further frames of the new rate silently.
        capture.clear();
        QVERIFY(adapter.adapt(TestFrames::s16Audio(stereo, 32000, 3200, levels)));
        QVERIFY(capture.recordTexts().isEmpty());
    }

    void anyLayoutBecomesTheRequestedForm_data()
    {
        QTest::addColumn<quint64>("mask");
        QTest::addColumn<int>("format");
        QTest::addColumn<int>("rate");
        QTest::newRow("mono s16 22.05k") << quint64(AV_CH_LAYOUT_MONO) << int(AV_SAMPLE_FMT_S16) << 22050;
        QTest::newRow("stereo fltp 48k") << quint64(AV_CH_LAYOUT_STEREO) << int(AV_SAMPLE_FMT_FLTP) << 48000;
        QTest::newRow("5.1 fltp 48k") << quint64(AV_CH_LAYOUT_5POINT1) << int(AV_SAMPLE_FMT_FLTP) << 48000;
        QTest::newRow("7.1 s32p 96k") << quint64(AV_CH_LAYOUT_7POINT1) << int(AV_SAMPLE_FMT_S32P) << 96000;
    }

    void anyLayoutBecomesTheRequestedForm()
    {
        QFETCH(quint64, mask);
        QFETCH(int, format);
        QFETCH(int, rate);
        // Set up for something else: the frame's own parameters must win.
        FFAudioAdapter adapter;
        QVERIFY(setUp(adapter, 44100, AV_SAMPLE_FMT_S16, AV_CH_LAYOUT_STEREO, 44100, 2, AV_SAMPLE_FMT_S16));
        const AVFramePtr in = TestFrames::silentAudio(AVSampleFormat(format), TestFrames::layoutOf(mask), rate,
                                                      rate / 10);
        in->pts = 77;
        const AVFramePtr out = adapter.adapt(in);
        QVERIFY(out);
        QCOMPARE(out->format, int(AV_SAMPLE_FMT_S16));
        QCOMPARE(out->sample_rate, 44100);
        QCOMPARE(out->ch_layout.nb_channels, 2);
        QCOMPARE(out->ch_layout.u.mask, quint64(AV_CH_LAYOUT_STEREO));
        QVERIFY2(qAbs(out->nb_samples - 4410) < 100, qPrintable(QString::number(out->nb_samples)));
        QCOMPARE(out->pts, 77);
        const auto *samples = reinterpret_cast<const int16_t *>(out->data[0]);
        for (int i = 0; i < out->nb_samples * 2; ++i)
            QCOMPARE(samples[i], int16_t(0));
    }

    void failedSetupKeepsTheEarlierResampler()
    {
        FFAudioAdapter adapter;
        QVERIFY(setUp(adapter, 48000, AV_SAMPLE_FMT_S16, AV_CH_LAYOUT_STEREO, 44100, 2, AV_SAMPLE_FMT_S16));
        LogCapture capture;
        QVERIFY(!setUp(adapter, 48000, AV_SAMPLE_FMT_S16, AV_CH_LAYOUT_STEREO, 0, 2, AV_SAMPLE_FMT_FLT));
        const QStringList texts = capture.recordTexts();
        QCOMPARE(texts.size(), 2);
        QCOMPARE(texts[0], QStringLiteral("Cannot create sample rate conv of 48000 Hz s16 2 channels to 0 Hz flt 2 channels!"));
        QVERIFY2(texts[1].startsWith(QStringLiteral("audio swr ")), qPrintable(texts[1]));
        QCOMPARE(capture.records().first().sourcePath(), kSourcePath);
        QVERIFY(capture.records().first().function().startsWith(
            QStringLiteral("bool Veloran::FFAudioAdapter::setupContext(int, int, AVSampleFormat, AVChannelLayout")));

        const AVFramePtr out = adapter.adapt(TestFrames::silentAudio(
            AV_SAMPLE_FMT_S16, TestFrames::layoutOf(AV_CH_LAYOUT_STEREO), 48000, 4800));
        QVERIFY(out);
        QCOMPARE(out->sample_rate, 44100);
        QCOMPARE(out->format, int(AV_SAMPLE_FMT_S16));
    }

    void frameThatCannotBeResampledIsDropped()
    {
        FFAudioAdapter adapter;
        QVERIFY(setUp(adapter, 48000, AV_SAMPLE_FMT_S16, AV_CH_LAYOUT_STEREO, 44100, 2, AV_SAMPLE_FMT_S16));
        const AVFramePtr bad = TestFrames::silentAudio(AV_SAMPLE_FMT_S16, TestFrames::layoutOf(AV_CH_LAYOUT_STEREO),
                                                       48000, 480);
        bad->sample_rate = 0; // as a damaged stream might report
        LogCapture capture;
        for (int attempt = 0; attempt < 2; ++attempt) {
            QVERIFY(!adapter.adapt(bad));
            const QStringList texts = capture.recordTexts();
            QVERIFY(texts.size() >= 3);
            QVERIFY(texts.first().startsWith(QStringLiteral("---player--- demux and frame param isn't match: ")));
            QCOMPARE(texts.last(), QStringLiteral("---player--- no SwrContext..."));
            capture.clear();
        }
        // Frames of the set-up form still convert with the resampler kept.
        QVERIFY(adapter.adapt(TestFrames::silentAudio(AV_SAMPLE_FMT_S16, TestFrames::layoutOf(AV_CH_LAYOUT_STEREO),
                                                      48000, 480)));
        QVERIFY(capture.recordTexts().isEmpty());
    }
};

QTEST_GUILESS_MAIN(TstAudioAdapter)
#include "tst_audioadapter.moc"
