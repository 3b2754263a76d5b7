#include "LogCapture.h"
#include "TestFrames.h"

#include "VeloranDec/Adapter/FFVideoAdapter.h"

#include <QtTest>

using namespace Veloran;

namespace {

// Red in limited-range BT.601, as a decoder hands it out.
constexpr uint8_t kRedY = 81, kRedU = 90, kRedV = 240;

void verifyAllPixels(const AVFramePtr &frame, int bytesPerPixel, const QVector<int> &expected)
{
    for (int row = 0; row < frame->height; ++row) {
        const uint8_t *line = frame->data[0] + row * frame->linesize[0];
        for (int col = 0; col < frame->width; ++col)
            for (int c = 0; c < expected.size(); ++c) {
                const int value = line[col * bytesPerPixel + c];
                if (qAbs(value - expected[c]) > 3)
                    QFAIL(qPrintable(QStringLiteral("pixel %1,%2 component %3 is %4, expected %5")
                                         .arg(col).arg(row).arg(c).arg(value).arg(expected[c])));
            }
    }
}

} // namespace

class TstVideoAdapter : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void neverSetUpPassesOutputFormatThroughAndConvertsOthersAtOwnSize()
    {
        FFVideoAdapter adapter;
        QVERIFY(!adapter.adapt(AVFramePtr()));

        adapter.setOutFormat(AV_PIX_FMT_YUV420P);
        QCOMPARE(adapter.outFormat(), AV_PIX_FMT_YUV420P);
        QCOMPARE(adapter.inWidth(), 0);
        const AVFramePtr yuv = TestFrames::solidYuv420(40, 30, kRedY, kRedU, kRedV);
        QCOMPARE(adapter.adapt(yuv).data(), yuv.data());

        adapter.setOutFormat(AV_PIX_FMT_RGBA);
        const AVFramePtr rgba = adapter.adapt(yuv);
        QVERIFY(rgba);
        QVERIFY(rgba.data() != yuv.data());
        QCOMPARE(rgba->format, int(AV_PIX_FMT_RGBA));
        QCOMPARE(rgba->width, 40);
        QCOMPARE(rgba->height, 30);
        QCOMPARE(adapter.inWidth(), 40);
        QCOMPARE(adapter.inHeight(), 30);
        QCOMPARE(adapter.outWidth(), 40);
        QCOMPARE(adapter.inFormat(), AV_PIX_FMT_YUV420P);
        verifyAllPixels(rgba, 4, {255, 0, 0, 255});

        // Once set up, a frame already in the output format is converted like any other.
        adapter.setOutFormat(AV_PIX_FMT_YUV420P);
        const AVFramePtr again = adapter.adapt(yuv);
        QVERIFY(again && again.data() != yuv.data());
        QCOMPARE(again->format, int(AV_PIX_FMT_YUV420P));
    }

    void convertsToRequestedSizeAndFormatKeepingTimes()
    {
        FFVideoAdapter adapter;
        QVERIFY(adapter.setupContext(64, 48, AV_PIX_FMT_YUV420P, 30, 24, AV_PIX_FMT_RGB24));
        const AVFramePtr yuv = TestFrames::solidYuv420(64, 48, kRedY, kRedU, kRedV);
        yuv->pts = 4000;
        yuv->pkt_dts = 3960;
        yuv->best_effort_timestamp = 1;
        yuv->interlaced_frame = 1;
        yuv->sample_aspect_ratio = AVRational {4, 3};

        const AVFramePtr rgb = adapter.adapt(yuv);
        QVERIFY(rgb);
        QCOMPARE(rgb->format, int(AV_PIX_FMT_RGB24));
        QCOMPARE(rgb->width, 30);
        QCOMPARE(rgb->height, 24);
        QCOMPARE(rgb->linesize[0] % 16, 0); // RGB24 rows are 16-byte aligned
        QVERIFY(rgb->linesize[0] >= 90);
        verifyAllPixels(rgb, 3, {255, 0, 0});
        QCOMPARE(rgb->pts, 4000);
        QCOMPARE(rgb->pkt_dts, 3960);
        QCOMPARE(rgb->best_effort_timestamp, 4000);
        QCOMPARE(rgb->interlaced_frame, 1);
        QCOMPARE(rgb->sample_aspect_ratio.num, 4);
        QCOMPARE(rgb->sample_aspect_ratio.den, 3);

        FFVideoAdapter rgbaAdapter;
        QVERIFY(rgbaAdapter.setupContext(64, 48, AV_PIX_FMT_YUV420P, 16, 12, AV_PIX_FMT_RGBA));
        const AVFramePtr rgba = rgbaAdapter.adapt(yuv);
        QVERIFY(rgba);
        QCOMPARE(rgba->width, 16);
        QCOMPARE(rgba->height, 12);
        verifyAllPixels(rgba, 4, {255, 0, 0, 255});
    }

    void changedSourceRebuildsAtTheSourceSize()
    {
        FFVideoAdapter adapter;
        QVERIFY(adapter.setupContext(64, 48, AV_PIX_FMT_YUV420P, 32, 24, AV_PIX_FMT_RGB24));
        AVFramePtr out = adapter.adapt(TestFrames::solidYuv420(64, 48, kRedY, kRedU, kRedV));
        QCOMPARE(out->width, 32);

        out = adapter.adapt(TestFrames::solidYuv420(80, 60, kRedY, kRedU, kRedV));
        QVERIFY(out);
        QCOMPARE(out->width, 80);
        QCOMPARE(out->height, 60);
        QCOMPARE(out->format, int(AV_PIX_FMT_RGB24));
        QCOMPARE(adapter.inWidth(), 80);
        QCOMPARE(adapter.outWidth(), 80);
        verifyAllPixels(out, 3, {255, 0, 0});
    }

    void badParametersAreRefusedAndTheEarlierScalerStays()
    {
        FFVideoAdapter adapter;
        QVERIFY(adapter.setupContext(64, 48, AV_PIX_FMT_YUV420P, 32, 24, AV_PIX_FMT_RGB24));

        LogCapture capture;
        QVERIFY(!adapter.setupContext(0, 480, AV_PIX_FMT_YUV420P, 32, 24, AV_PIX_FMT_RGB24));
        QVERIFY(!adapter.setupContext(64, 48, AV_PIX_FMT_NONE, 32, 24, AV_PIX_FMT_RGB24));
        QVERIFY(!adapter.setupContext(64, 48, AV_PIX_FMT_YUV420P, 0, 0, AV_PIX_FMT_RGB24));
        QCOMPARE(capture.recordTexts(),
                 QStringList({"FFVideoAdapter error param: 0,480,0,2", "FFVideoAdapter error param: 64,48,-1,2",
                              "create sws_getContext failed"}));
        const Record first = capture.records().first();
        QCOMPARE(first.sourcePath(), QStringLiteral("VeloranDec/Adapter/FFVideoAdapter"));
        QCOMPARE(first.function(),
                 QStringLiteral("bool Veloran::FFVideoAdapter::setupContext(int, int, AVPixelFormat, int, int, AVPixelFormat)"));

        QCOMPARE(adapter.inWidth(), 64);
        QCOMPARE(adapter.inHeight(), 48);
        QCOMPARE(adapter.outWidth(), 32);
        QCOMPARE(adapter.outFormat(), AV_PIX_FMT_RGB24);
        const AVFramePtr out = adapter.adapt(TestFrames::solidYuv420(64, 48, kRedY, kRedU, kRedV));
        QVERIFY(out);
        QCOMPARE(out->width, 32);
        QCOMPARE(out->height, 24);
        verifyAllPixels(out, 3, {255, 0, 0});
    }

    void sourceThatCannotBeScaledGivesNoFrame()
    {
        FFVideoAdapter adapter;
        QVERIFY(adapter.setupContext(64, 48, AV_PIX_FMT_YUV420P, 32, 24, AV_PIX_FMT_RGB24));
        const AVFramePtr broken = TestFrames::solidYuv420(64, 48, kRedY, kRedU, kRedV);
        broken->width = 0; // a decoder never does this; the adapter must not scale it anyway
        LogCapture capture;
        QVERIFY(!adapter.adapt(broken));
        QCOMPARE(capture.recordTexts(), QStringList("FFVideoAdapter error param: 0,48,0,2"));
    }
};

QTEST_GUILESS_MAIN(TstVideoAdapter)
#include "tst_videoadapter.moc"
