#include "FetchAnswers.h"
#include "ImageDifference.h"
#include "LogCapture.h"
#include "TestMedia.h"

#include "FFmpegJoint.h"
#include "Model/NLMapNode.h"
#include "VeloranDec/Adapter/FFAudioAdapter.h"
#include "VeloranDec/Adapter/FFVideoAdapter.h"
#include "VeloranDec/AudioFrame.h"
#include "VeloranDec/CVideoStreamInfo.h"
#include "VeloranDec/VideoFrame.h"
#include "VeloranDec/VideoSource.h"

#include <QtTest>

#include <cstring>

extern "C" {
#include <libavutil/channel_layout.h>
}

using namespace Veloran;

namespace {

// Red in limited-range BT.601, as a decoder hands it out.
constexpr uint8_t kRedY = 81, kRedU = 90, kRedV = 240;

// A red YUV 4:2:0 picture.
AVFramePtr solidYuv420(int width, int height)
{
    AVFramePtr frame = makeAVFramePtr(av_frame_alloc());
    frame->format = AV_PIX_FMT_YUV420P;
    frame->width = width;
    frame->height = height;
    if (av_frame_get_buffer(frame.data(), 0) < 0)
        return {};
    const uint8_t values[3] = {kRedY, kRedU, kRedV};
    for (int plane = 0; plane < 3; ++plane)
        std::memset(frame->data[plane], values[plane], size_t(frame->linesize[plane]) * (plane ? (height + 1) / 2 : height));
    return frame;
}

// Zeroed audio as a decoder allocates it; interleaved 16-bit stereo gets constant `left` and `right` levels.
AVFramePtr audio(AVSampleFormat format, uint64_t layoutMask, int sampleRate, int samples, int16_t left = 0, int16_t right = 0)
{
    AVFramePtr frame = makeAVFramePtr(av_frame_alloc());
    frame->format = format;
    frame->sample_rate = sampleRate;
    frame->nb_samples = samples;
    av_channel_layout_from_mask(&frame->ch_layout, layoutMask);
    if (av_frame_get_buffer(frame.data(), 0) < 0)
        return {};
    for (int i = 0; i < AV_NUM_DATA_POINTERS && frame->buf[i]; ++i)
        std::memset(frame->buf[i]->data, 0, frame->buf[i]->size);
    for (int i = 0; format == AV_SAMPLE_FMT_S16 && layoutMask == AV_CH_LAYOUT_STEREO && i < 2 * samples; ++i)
        reinterpret_cast<int16_t *>(frame->data[0])[i] = i % 2 ? right : left;
    return frame;
}

AVFramePtr stereoLevels(int sampleRate, int samples, int16_t left, int16_t right)
{
    return audio(AV_SAMPLE_FMT_S16, AV_CH_LAYOUT_STEREO, sampleRate, samples, left, right);
}

bool setUp(FFAudioAdapter &adapter, int inRate, AVSampleFormat inFormat, int outRate, int outChannels, AVSampleFormat outFormat)
{
    AVChannelLayout stereo = AV_CHANNEL_LAYOUT_STEREO;
    return adapter.setupContext(inRate, 2, inFormat, stereo, outRate, outChannels, outFormat);
}

// Whether every pixel of a packed picture is within 3 of `expected`.
bool allPixels(const AVFramePtr &frame, int bytesPerPixel, const QVector<int> &expected)
{
    for (int row = 0; row < frame->height; ++row)
        for (int col = 0; col < frame->width; ++col)
            for (int c = 0; c < expected.size(); ++c)
                if (qAbs(frame->data[0][row * frame->linesize[0] + col * bytesPerPixel + c] - expected[c]) > 3)
                    return false;
    return true;
}

// A clip's first frame as the thumbnail picker gets it: RGB, `width` wide (0 keeps the size).
QImage firstPicture(const QString &clip, int width)
{
    VideoSource source;
    if (!source.openVideo(TestMedia::path(clip), {AV_PIX_FMT_RGB24, AV_PIX_FMT_RGBA}, width))
        return {};
    const QSharedPointer<IVideoFrame> frame = source.seekAndReadNextAdaptFrame(0, true);
    if (!frame || frame->format() != AV_PIX_FMT_RGB24)
        return {};
    const QSize size = frame->frameSize();
    return QImage(frame->data(0), size.width(), size.height(), frame->lineSize(0), QImage::Format_RGB888).copy();
}

// Mean chroma: the spread between the largest and smallest channel, per pixel.
double saturation(const QImage &image)
{
    const QImage a = image.convertToFormat(QImage::Format_RGB888);
    qint64 sum = 0;
    for (int row = 0; row < a.height(); ++row)
        for (const uchar *p = a.constScanLine(row); p < a.constScanLine(row) + a.width() * 3; p += 3)
            sum += qMax(qMax(p[0], p[1]), p[2]) - qMin(qMin(p[0], p[1]), p[2]);
    return double(sum) / (double(a.width()) * a.height());
}

// HDR tone-mapped to SDR is close to its SDR source and as colourful (not grey and washed out).
void compareWithSdrSource(const QImage &picture)
{
    const QImage source = QImage(TestMedia::path("hdr-source.png"))
                              .scaled(picture.size(), Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
    const double mean = ImageDifference::of(picture, source, 8).mean;
    QVERIFY2(mean < 15, qPrintable(QString::number(mean)));
    QVERIFY2(saturation(picture) > 0.85 * saturation(source),
             qPrintable(QStringLiteral("%1 of %2").arg(saturation(picture)).arg(saturation(source))));
}

// The crop a clip from 1000 ms, 2000 ms of source at `speed`, gives a frame at `timeMs`.
QString cropAt(const QString &begin, const QString &end, long long timeMs, double speed)
{
    VideoFrame frame(solidYuv420(16, 16), 0);
    frame.setClipNode(NLMapNodePtr(new NLMapNode(
        QStringLiteral(R"({"id":"c","type":"clip","kind":"video","timeline_pos":1000,"range_length":2000,"speed":%1,
            "transform":{"crop":"kept","pan_crop_begin":"%2","pan_crop_end":"%3"}})")
            .arg(speed).arg(begin, end))));
    frame.setPts(timeMs);
    return frame.transformMap().value(QStringLiteral("crop")).toString();
}

} // namespace

class TstFrames : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void videoAdapterConvertsPicturesKeepingTheirTimes()
    {
        FFVideoAdapter adapter;
        QVERIFY(!adapter.adapt(AVFramePtr()));
        // Never set up: a frame in the output format passes, others convert at their size.
        adapter.setOutFormat(AV_PIX_FMT_YUV420P);
        const AVFramePtr yuv = solidYuv420(40, 30);
        QCOMPARE(adapter.adapt(yuv).data(), yuv.data());
        adapter.setOutFormat(AV_PIX_FMT_RGBA);
        const AVFramePtr rgba = adapter.adapt(yuv);
        QVERIFY(rgba && rgba->format == AV_PIX_FMT_RGBA && rgba->width == 40 && allPixels(rgba, 4, {255, 0, 0, 255}));

        QVERIFY(adapter.setupContext(64, 48, AV_PIX_FMT_YUV420P, 30, 24, AV_PIX_FMT_RGB24));
        const AVFramePtr in = solidYuv420(64, 48);
        in->pts = 4000;
        in->pkt_dts = 3960;
        in->best_effort_timestamp = 1;
        in->interlaced_frame = 1;
        in->sample_aspect_ratio = AVRational{4, 3};
        const AVFramePtr rgb = adapter.adapt(in);
        QVERIFY(rgb && rgb->width == 30 && rgb->height == 24 && rgb->linesize[0] % 16 == 0 && allPixels(rgb, 3, {255, 0, 0}));
        QVERIFY(rgb->pts == 4000 && rgb->pkt_dts == 3960 && rgb->best_effort_timestamp == 4000);
        QVERIFY(rgb->interlaced_frame == 1 && rgb->sample_aspect_ratio.num == 4);

        // Bad parameters are refused with their log line; the scaler set up before stays.
        LogCapture capture;
        QVERIFY(!adapter.setupContext(0, 480, AV_PIX_FMT_YUV420P, 32, 24, AV_PIX_FMT_RGB24));
        QVERIFY(!adapter.setupContext(64, 48, AV_PIX_FMT_NONE, 32, 24, AV_PIX_FMT_RGB24));
        QVERIFY(!adapter.setupContext(64, 48, AV_PIX_FMT_YUV420P, 0, 0, AV_PIX_FMT_RGB24));
        const AVFramePtr out = adapter.adapt(solidYuv420(64, 48));
        QVERIFY(out && out->width == 30 && allPixels(out, 3, {255, 0, 0}));
        in->width = 0; // a decoder never does this; the adapter must not scale it anyway
        QVERIFY(!adapter.adapt(in));
        QCOMPARE(capture.recordTexts(), QStringList({"FFVideoAdapter error param: 0,480,0,2", "FFVideoAdapter error param: 64,48,-1,2",
                                                     "create sws_getContext failed", "FFVideoAdapter error param: 0,48,0,2"}));
        // A source of another size rebuilds the scaler at the source's size.
        const AVFramePtr larger = adapter.adapt(solidYuv420(80, 60));
        QVERIFY(larger && larger->width == 80 && larger->height == 60 && allPixels(larger, 3, {255, 0, 0}));
    }

    // The first frame matches ffmpeg's conversion naming matrix and range (<clip>.png); HDR is also tone-mapped.
    void sourcesReadTheStreamsOwnColour_data()
    {
        QTest::addColumn<QString>("clip");
        QTest::addColumn<int>("width"); // the thumbnail width; 0 for the source size
        QTest::newRow("BT.601 tag at HD size") << "colour-601-hd.mp4" << 0;
        QTest::newRow("BT.709 tag at SD size") << "colour-709.mp4" << 0;
        QTest::newRow("full range, yuvj420p") << "colour-709-full.mp4" << 0;
        QTest::newRow("MJPEG") << "colour-jpeg.avi" << 0;
        QTest::newRow("10 bits, full range") << "colour-709-full-10bit.mkv" << 0;
        QTest::newRow("untagged HD is BT.709") << "colour-untagged-hd.mp4" << 0;
        QTest::newRow("untagged SD is BT.601") << "colour-untagged-sd.mp4" << 0;
        QTest::newRow("HDR10 (PQ)") << "hdr-pq.mp4" << 160;
        QTest::newRow("HLG") << "hdr-hlg.mp4" << 160;
    }

    void sourcesReadTheStreamsOwnColour()
    {
        QFETCH(QString, clip);
        QFETCH(int, width);
        const QImage picture = firstPicture(clip, width);
        const ImageDifference d = ImageDifference::of(picture, QImage(TestMedia::path(clip + ".png")), 8);
        QVERIFY2(d.mean < 0.5 && d.share < 0.01, qPrintable(QStringLiteral("mean %1 share %2").arg(d.mean).arg(d.share)));
        if (clip.startsWith(QStringLiteral("hdr-")))
            compareWithSdrSource(picture);
    }

    void hdrFreezeFramesAreToneMappedToSdr()
    {
        const QSharedPointer<IAVFetcher> fetcher = createAVFetcher();
        const QString saved = TestMedia::scratchDir(QStringLiteral("frames")) + QStringLiteral("/pq.png");
        QSignalSpy spy(fetcher.data(), &IAVFetcher::videoFreeze);
        const qint64 id = fetcher->fetchFreezeFrame(TestMedia::path("hdr-pq.mp4"), saved, 0, true, false);
        const auto answers = FetchAnswers::collect(spy, id, [](const QList<QList<QVariant>> &a) { return !a.isEmpty(); });
        QVERIFY(!answers.isEmpty() && answers.first().at(5).toBool());
        const QImage picture(saved);
        QCOMPARE(picture.size(), QSize(320, 180));
        compareWithSdrSource(picture);
    }

    void audioAdapterResamplesToTheRequestedForm()
    {
        FFAudioAdapter adapter;
        LogCapture capture;
        QVERIFY(!adapter.adapt(stereoLevels(48000, 480, 0, 0)));
        QCOMPARE(capture.recordTexts(), QStringList("no SwrContext..."));

        // Stereo 16-bit at half scale mixes to mono u8 at half scale above the midpoint 128.
        QVERIFY(setUp(adapter, 44100, AV_SAMPLE_FMT_S16, 48000, 1, AV_SAMPLE_FMT_U8));
        const AVFramePtr in = stereoLevels(44100, 4410, 16384, 16384);
        in->pts = 1500;
        capture.clear();
        const AVFramePtr out = adapter.adapt(in);
        QVERIFY(out && out->format == AV_SAMPLE_FMT_U8 && out->sample_rate == 48000 && out->ch_layout.nb_channels == 1);
        QVERIFY(qAbs(out->nb_samples - 4800) < 64 && out->pts == 1500 && capture.recordTexts().isEmpty());
        for (int i = 200; i < out->nb_samples - 200; ++i)
            QVERIFY2(qAbs(out->data[0][i] - 192) <= 2, qPrintable(QString::number(out->data[0][i])));

        // A frame already in the output form is handed back as it is.
        QVERIFY(setUp(adapter, 48000, AV_SAMPLE_FMT_S16, 48000, 2, AV_SAMPLE_FMT_S16));
        const AVFramePtr same = stereoLevels(48000, 1024, 1, 2);
        QCOMPARE(adapter.adapt(same).data(), same.data());
    }

    void audioAdapterFollowsTheFramesOwnParameters()
    {
        FFAudioAdapter adapter;
        QVERIFY(setUp(adapter, 44100, AV_SAMPLE_FMT_S16, 48000, 2, AV_SAMPLE_FMT_S16));
        LogCapture capture;
        const AVFramePtr out = adapter.adapt(stereoLevels(32000, 3200, 8000, -8000));
        QCOMPARE(capture.recordTexts(), QStringList("---player--- demux and frame param isn't match: mInFormat = 1,frame->format = 1,"
                                                    "mInChannels = 2,frame->channels = 2,mInSampleRate = 44100,frame->sample_rate = 32000"));
        QVERIFY(out && out->sample_rate == 48000 && qAbs(out->nb_samples - 4800) < 64);
        const auto *samples = reinterpret_cast<const int16_t *>(out->data[0]);
        for (int i = 100; i < out->nb_samples - 100; ++i) // converted as 32 kHz input
            QVERIFY(qAbs(samples[2 * i] - 8000) <= 8 && qAbs(samples[2 * i + 1] + 8000) <= 8);
        capture.clear();
        QVERIFY(adapter.adapt(stereoLevels(32000, 3200, 1, 1))); // the rebuilt resampler serves on silently
        QVERIFY(capture.recordTexts().isEmpty());
    }

    void audioAdapterRefusesBadInputAndKeepsItsResampler()
    {
        FFAudioAdapter adapter;
        QVERIFY(setUp(adapter, 48000, AV_SAMPLE_FMT_S16P, 44100, 2, AV_SAMPLE_FMT_S16));
        LogCapture capture;
        QVERIFY(!setUp(adapter, 48000, AV_SAMPLE_FMT_S16, 0, 2, AV_SAMPLE_FMT_FLT));
        QCOMPARE(capture.recordTexts().value(0),
                 QStringLiteral("Cannot create sample rate conv of 48000 Hz s16 2 channels to 0 Hz flt 2 channels!"));
        QVERIFY(capture.recordTexts().value(1).startsWith(QStringLiteral("audio swr ")));

        // The planar set-up stays: a frame with both planes converts, one missing a plane is refused.
        const AVFramePtr planar = audio(AV_SAMPLE_FMT_S16P, AV_CH_LAYOUT_STEREO, 48000, 960);
        capture.clear();
        const AVFramePtr out = adapter.adapt(planar);
        QVERIFY(out && out->sample_rate == 44100 && out->format == AV_SAMPLE_FMT_S16 && capture.recordTexts().isEmpty());
        uint8_t *second = planar->data[1];
        planar->data[1] = nullptr;
        QVERIFY(!adapter.adapt(planar));
        planar->data[1] = second;
        QCOMPARE(capture.recordTexts(), QStringList("---player--- channels ,format and data isn't match: mInChannels = 2,"
                                                    "mInFormat(planar) = 6,frame->data[1] is null"));

        // A frame that cannot be resampled is dropped, the resampler kept.
        planar->sample_rate = 0; // as a damaged stream might report
        capture.clear();
        QVERIFY(!adapter.adapt(planar));
        QVERIFY(capture.recordTexts().value(0).startsWith(QStringLiteral("---player--- demux and frame param isn't match: ")));
        QCOMPARE(capture.recordTexts().last(), QStringLiteral("---player--- no SwrContext..."));
        QVERIFY(adapter.adapt(audio(AV_SAMPLE_FMT_S16P, AV_CH_LAYOUT_STEREO, 48000, 480))); // every time
        QVERIFY(!adapter.adapt(planar));
    }

    void wrappersKeepTheirOwnTimesAndViews()
    {
        const QSharedPointer<IVideoFrame> fake = makeFakeVideoFrame();
        QVERIFY(fake->isEndFakeFrame() && !fake->data(0) && fake->pts() == -1 && fake->displaySize() == QSize(-1, -1));

        const AVFramePtr picture = solidYuv420(160, 120);
        picture->pts = 2000;
        VideoFrame frame(picture, 3);
        frame.setPts(0); // 0 is a time, negative unsets: the picture's own time again
        QCOMPARE(frame.pts(), 0LL);
        frame.setPts(-5);
        QCOMPARE(frame.pts(), 2000LL);
        frame.setPts(1234);
        QCOMPARE(picture->pts, 2000); // never written through

        auto info = QSharedPointer<CVideoStreamInfo>::create();
        info->rotation = 90;
        info->sar = AVRational{3, 2};
        frame.setStreamInfo(info);
        QCOMPARE(frame.displaySize(), QSize(120, 240)); // the picture's size, not the stream's, with rotation and aspect

        // No clip, no transform; a copy shares picture and clip node but has its own view of the node.
        QVERIFY(frame.transformMap().isEmpty());
        const NLMapNodePtr node(new NLMapNode(QStringLiteral(R"({"id":"c","alpha":0.25,"video_filters":[{"name":"blur"}]})")));
        frame.setClipNode(node);
        QCOMPARE(frame.filters().value(0).value("name").toString(), QStringLiteral("blur"));
        const QSharedPointer<IVideoFrame> copy = frame.makeCopy();
        QVERIFY(copy->getRawFrame() == picture && copy->pts() == 1234 && copy->seekMode() == 3 && copy->clipNode() == node);
        copy->setClipNode(NLMapNodePtr(new NLMapNode(QStringLiteral(R"({"id":"d","alpha":0.5})"))));
        QVERIFY(copy->alpha() == 0.5f && frame.alpha() == 0.25f && frame.clipNode() == node);

        // Audio keeps its own time too, written to the frame only by toAVFrame.
        const AVFramePtr samples = audio(AV_SAMPLE_FMT_FLTP, AV_CH_LAYOUT_5POINT1, 44100, 512);
        samples->pts = 300;
        const QSharedPointer<IAudioFrame> audio = makeAudioFrame(samples);
        audio->setPts(1234);
        QCOMPARE(samples->pts, 300);
        QCOMPARE(audio->toAVFrame()->pts, 1234);

        AudioFrame empty{AVFramePtr()};
        QVERIFY(empty.isEmpty() && !empty.toAVFrame() && !empty.data(0) && empty.pts() == -1);

        // A silent frame: capacity for the samples, all zero, but no samples yet.
        AudioFrame silent(4800LL);
        QVERIFY(silent.samples() == 0 && silent.sampleRate() == 48000);
        const AVFramePtr raw = silent.toAVFrame();
        QVERIFY(raw->format == AV_SAMPLE_FMT_S16 && raw->ch_layout.u.mask == AV_CH_LAYOUT_STEREO && raw->buf[0]->size >= 4800 * 4);
        QVERIFY(std::all_of(raw->buf[0]->data, raw->buf[0]->data + raw->buf[0]->size, [](uint8_t b) { return b == 0; }));
        QVERIFY(AudioFrame(-1LL).isEmpty() && AudioFrame(1LL << 40).isEmpty());
    }

    void cropMovesFromBeginToEndOverTheClip_data()
    {
        QTest::addColumn<QString>("begin");
        QTest::addColumn<QString>("end");
        QTest::addColumn<int>("time");
        QTest::addColumn<double>("speed");
        QTest::addColumn<QString>("crop");
        const QString b = QStringLiteral("0,0,100,100"), e = QStringLiteral("20,10,60,50");
        QTest::newRow("first frame") << b << e << 1000 << 1.0 << b;
        QTest::newRow("quarter") << b << e << 1500 << 1.0 << "5,2.5,90,87.5";
        QTest::newRow("last frame") << b << e << 3000 << 1.0 << e;
        QTest::newRow("before the clip") << b << e << 0 << 1.0 << "-10,-5,120,125";
        QTest::newRow("double speed") << b << e << 2000 << 2.0 << e;
        QTest::newRow("no numbers count as zero") << "x,0,100,100" << "20,10,60,y" << 2000 << 1.0 << "10,5,80,50";
        QTest::newRow("three numbers") << "0,0,100" << e << 2000 << 1.0 << "kept";
        QTest::newRow("no begin") << "" << e << 2000 << 1.0 << "kept";
    }

    void cropMovesFromBeginToEndOverTheClip()
    {
        QFETCH(QString, begin);
        QFETCH(QString, end);
        QFETCH(int, time);
        QFETCH(double, speed);
        QTEST(cropAt(begin, end, time, speed), "crop");
    }
};

QTEST_GUILESS_MAIN(TstFrames)
#include "tst_frames.moc"
