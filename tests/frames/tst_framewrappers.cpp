#include "TestFrames.h"

#include "Model/NLMapNode.h"
#include "VeloranDec/AudioFrame.h"
#include "VeloranDec/VideoFrame.h"

#include <QtTest>

extern "C" {
#include <libavutil/channel_layout.h>
}

using namespace Veloran;

namespace {

NLMapNodePtr clipNode(const QString &json)
{
    return NLMapNodePtr(new NLMapNode(json));
}

const char *kClipJson = R"({"id":"clip1","type":"clip","kind":"video","timeline_pos":1000,"range_length":2000,
    "alpha":0.25,"video_filters":[{"id":"f1","name":"blur"},{"id":"f2","name":"sepia"}]})";

} // namespace

class TstFrameWrappers : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void videoWrapperWithoutPicture()
    {
        const QSharedPointer<IVideoFrame> fake = makeFakeVideoFrame();
        QVERIFY(fake->isEndFakeFrame());
        QCOMPARE(fake->format(), -1);
        QCOMPARE(fake->rawPts(), 0LL);
        QCOMPARE(fake->pts(), -1LL);
        QCOMPARE(fake->frameSize(), QSize(-1, -1));
        QCOMPARE(fake->displaySize(), QSize(-1, -1));
        QVERIFY(!fake->data(0));
        QCOMPARE(fake->lineSize(0), 0);
        QVERIFY(!fake->isInterlace());
        QVERIFY(!fake->getRawFrame());
        QCOMPARE(fake->seekMode(), 0);
        QCOMPARE(fake->getRotation(), 0);
        QVERIFY(fake->transformMap().isEmpty());
        QVERIFY(!fake->clipNode());
        fake->setPts(640);
        QCOMPARE(fake->pts(), 640LL);

        const QSharedPointer<IVideoFrame> copy = makeFakeVideoFrame()->makeCopy();
        QVERIFY(copy->isEndFakeFrame());
        QCOMPARE(copy->pts(), -1LL);
    }

    void videoWrapperReadsThePicture()
    {
        const AVFramePtr picture = TestFrames::solidYuv420(160, 120, 16, 128, 128);
        picture->pts = 2000;
        picture->interlaced_frame = 1;
        VideoFrame frame(picture, 3);
        QVERIFY(!frame.isEndFakeFrame());
        QCOMPARE(frame.format(), int(AV_PIX_FMT_YUV420P));
        QCOMPARE(frame.seekMode(), 3);
        QCOMPARE(frame.frameSize(), QSize(160, 120));
        QCOMPARE(frame.displaySize(), QSize(160, 120));
        QCOMPARE(frame.data(1), picture->data[1]);
        QCOMPARE(frame.lineSize(2), picture->linesize[2]);
        QVERIFY(frame.isInterlace());
        QCOMPARE(frame.getRawFrame().data(), picture.data());

        // The wrapper's time starts unset and falls back to the picture's own pts.
        QCOMPARE(frame.rawPts(), 2000LL);
        QCOMPARE(frame.pts(), 2000LL);
        frame.setPts(80);
        QCOMPARE(frame.pts(), 80LL);
        QCOMPARE(picture->pts, 2000); // never written through
        frame.setPts(0);
        QCOMPARE(frame.pts(), 0LL);
        frame.setPts(-5);
        QCOMPARE(frame.pts(), 2000LL);
    }

    void displaySizeFollowsTheStreamDescription()
    {
        auto info = QSharedPointer<CVideoStreamInfo>::create();
        info->width = 320; // the picture's own size counts, not the stream's
        info->height = 240;
        info->rotation = 90;
        info->sar = AVRational {3, 2};
        const QSharedPointer<IVideoFrame> frame = makeVideoFrame(TestFrames::solidYuv420(160, 120, 16, 128, 128), info);
        QCOMPARE(frame->getStreamInfo().data(), info.data());
        QCOMPARE(frame->seekMode(), 0);
        QCOMPARE(frame->getRotation(), 90);
        QCOMPARE(frame->displaySize(), QSize(120, 240));

        info->rotation = 180;
        QCOMPARE(frame->displaySize(), QSize(240, 120));
        info->sar = AVRational {1, 1};
        QCOMPARE(frame->displaySize(), QSize(160, 120));

        frame->setStreamInfo({});
        QCOMPARE(frame->getRotation(), 0);
        QCOMPARE(frame->displaySize(), QSize(160, 120));
    }

    void clipNodeGivesAlphaAndFilters()
    {
        VideoFrame frame(TestFrames::solidYuv420(16, 16, 16, 128, 128), 0);
        QCOMPARE(frame.alpha(), 1.0f);
        QVERIFY(frame.filters().isEmpty());

        const NLMapNodePtr node = clipNode(QString::fromUtf8(kClipJson));
        frame.setClipNode(node);
        QCOMPARE(frame.clipNode().data(), node.data());
        QCOMPARE(frame.alpha(), 0.25f);
        const QList<QVariantMap> filters = frame.filters();
        QCOMPARE(filters.size(), 2);
        QCOMPARE(filters[0].value("name").toString(), QStringLiteral("blur"));
        QCOMPARE(filters[1].value("name").toString(), QStringLiteral("sepia"));

        // Re-pointing the view: a clip without "alpha" is opaque, one without filters has none.
        const NLMapNodePtr plain = clipNode(R"({"id":"clip2","type":"clip","kind":"video"})");
        frame.setClipNode(plain);
        QCOMPARE(frame.clipNode().data(), plain.data());
        QCOMPARE(frame.alpha(), 1.0f);
        QVERIFY(frame.filters().isEmpty());
    }

    void copySharesPictureAndNodeButNotTheView()
    {
        const AVFramePtr picture = TestFrames::solidYuv420(32, 32, 16, 128, 128);
        picture->pts = 5;
        auto info = QSharedPointer<CVideoStreamInfo>::create();
        VideoFrame frame(picture, 2);
        frame.setPts(1234);
        frame.setStreamInfo(info);
        frame.setZOrder(7);
        frame.setTrunk(true);
        const NLMapNodePtr node = clipNode(QString::fromUtf8(kClipJson));
        frame.setClipNode(node);

        const QSharedPointer<IVideoFrame> copy = frame.makeCopy();
        QCOMPARE(copy->getRawFrame().data(), picture.data());
        QCOMPARE(copy->pts(), 1234LL);
        QCOMPARE(copy->seekMode(), 2);
        QCOMPARE(copy->getStreamInfo().data(), info.data());
        QCOMPARE(copy->zOrder(), 7);
        QVERIFY(copy->isTrunk());
        QCOMPARE(copy->clipNode().data(), node.data());
        QCOMPARE(copy->alpha(), 0.25f);

        // Each has its own view: re-pointing one leaves the other on the old node.
        const NLMapNodePtr other = clipNode(R"({"id":"clip3","type":"clip","kind":"video","alpha":0.5})");
        copy->setClipNode(other);
        QCOMPARE(frame.clipNode().data(), node.data());
        QCOMPARE(copy->alpha(), 0.5f);
        QCOMPARE(frame.alpha(), 0.25f);

        // A copy of a wrapper without clip has none either, and an unset time stays unset.
        VideoFrame bare(picture, 0);
        const QSharedPointer<IVideoFrame> bareCopy = bare.makeCopy();
        QVERIFY(!bareCopy->clipNode());
        QCOMPARE(bareCopy->pts(), 5LL);
        QVERIFY(!bareCopy->isTrunk());
        QCOMPARE(bareCopy->zOrder(), 0);
    }

    void audioWrapperReadsTheFrame()
    {
        const AVFramePtr samples = TestFrames::silentAudio(AV_SAMPLE_FMT_FLTP, TestFrames::layoutOf(AV_CH_LAYOUT_5POINT1),
                                                           44100, 512);
        samples->pts = 300;
        const QSharedPointer<IAudioFrame> frame = makeAudioFrame(samples);
        QVERIFY(!frame->isEmpty());
        QCOMPARE(frame->format(), int(AV_SAMPLE_FMT_FLTP));
        QCOMPARE(frame->channelCount(), 6);
        QCOMPARE(frame->sampleRate(), 44100);
        QCOMPARE(frame->samples(), 512);
        QCOMPARE(frame->sampleSize(), 4);
        QCOMPARE(frame->data(5), samples->data[5]);
        QCOMPARE(frame->seekMode(), 0);
        frame->setSeekMode(4);
        QCOMPARE(frame->seekMode(), 4);

        // The audio wrapper's time starts as the frame's pts.
        QCOMPARE(frame->rawPts(), 300LL);
        QCOMPARE(frame->pts(), 300LL);
        frame->setPts(-1);
        samples->pts = 310;
        QCOMPARE(frame->pts(), 310LL);
        frame->setPts(1234);
        QCOMPARE(samples->pts, 310); // only toAVFrame writes it
        const AVFramePtr out = frame->toAVFrame();
        QCOMPARE(out.data(), samples.data());
        QCOMPARE(out->pts, 1234);

        frame->setSamples(100);
        QCOMPARE(samples->nb_samples, 100);
    }

    void emptyAudioWrapper()
    {
        AudioFrame frame {AVFramePtr()};
        QVERIFY(frame.isEmpty());
        QCOMPARE(frame.format(), -1);
        QCOMPARE(frame.rawPts(), 0LL);
        QCOMPARE(frame.pts(), -1LL);
        QCOMPARE(frame.channelCount(), 0);
        QCOMPARE(frame.sampleRate(), 0);
        QCOMPARE(frame.samples(), 0);
        QCOMPARE(frame.sampleSize(), 0);
        QVERIFY(!frame.data(0));
        frame.setSamples(10);
        QVERIFY(!frame.toAVFrame());
        frame.setPts(20);
        QCOMPARE(frame.pts(), 20LL);
    }

    void silentAudioFrameHasCapacityButNoSamples()
    {
        AudioFrame silent(4800LL);
        QVERIFY(!silent.isEmpty());
        QCOMPARE(silent.samples(), 0);
        QCOMPARE(silent.pts(), 0LL);
        QCOMPARE(silent.format(), int(AV_SAMPLE_FMT_S16));
        QCOMPARE(silent.channelCount(), 2);
        QCOMPARE(silent.sampleRate(), 48000);
        QCOMPARE(silent.sampleSize(), 2);
        const AVFramePtr raw = silent.toAVFrame();
        QCOMPARE(raw->ch_layout.nb_channels, 2);
        QCOMPARE(raw->ch_layout.u.mask, quint64(AV_CH_LAYOUT_STEREO));
        QVERIFY(raw->buf[0]);
        QVERIFY(raw->buf[0]->size >= 4800 * 4);
        const uint8_t *bytes = raw->buf[0]->data;
        for (size_t i = 0; i < raw->buf[0]->size; ++i)
            QCOMPARE(bytes[i], uint8_t(0));

        // A producer fills it by raising the sample count within the capacity.
        silent.setSamples(4800);
        QCOMPARE(silent.samples(), 4800);

        QVERIFY(AudioFrame(-1LL).isEmpty());
        QVERIFY(AudioFrame(1LL << 40).isEmpty());
    }
};

QTEST_GUILESS_MAIN(TstFrameWrappers)
#include "tst_framewrappers.moc"
