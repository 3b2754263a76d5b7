#include "LogCapture.h"
#include "TestMedia.h"

#include "VeloranDec/FFDemuxer.h"
#include "VeloranDec/StreamInfoUtils.h"

#include <QtTest>

extern "C" {
#include <libavutil/channel_layout.h>
#include <libavutil/display.h>
}

using namespace Veloran;

namespace {

bool sameRational(AVRational a, AVRational b)
{
    return a.num == b.num && a.den == b.den;
}

// A stream with just the fields the description reads; the context owns it.
AVStream *addVideoStream(AVFormatContext *context, AVRational avgRate, AVRational realRate)
{
    AVStream *stream = avformat_new_stream(context, nullptr);
    stream->codecpar->codec_type = AVMEDIA_TYPE_VIDEO;
    stream->codecpar->codec_id = AV_CODEC_ID_H264;
    stream->codecpar->width = 640;
    stream->codecpar->height = 360;
    stream->avg_frame_rate = avgRate;
    stream->r_frame_rate = realRate;
    stream->time_base = AVRational {1, 90000};
    return stream;
}

// A matrix whose av_display_rotation_get reads `counterClockwiseDegrees`
// (av_display_rotation_set counts the other way).
void setRotation(AVStream *stream, double counterClockwiseDegrees)
{
    auto *matrix = reinterpret_cast<int32_t *>(
        av_stream_new_side_data(stream, AV_PKT_DATA_DISPLAYMATRIX, 9 * sizeof(int32_t)));
    av_display_rotation_set(matrix, -counterClockwiseDegrees);
}

QSharedPointer<ContainerInfo> describe(const QString &name)
{
    FFDemuxer demuxer;
    if (!demuxer.open(TestMedia::path(name)))
        return {};
    return demuxer.containerInfo();
}

} // namespace

class TstMediaStreamInfo : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void frameRateFallsBackToTheBaseRate()
    {
        const AVFormatContextPtr context = makeAVFormatContextPtr(avformat_alloc_context());
        struct Case
        {
            AVRational avg, real, expected;
        };
        const Case cases[] = {
            {{0, 0}, {30000, 1001}, {30000, 1001}}, // unset average
            {{120, 1}, {30, 1}, {120, 1}},           // 120 is still believed
            {{121, 1}, {30, 1}, {30, 1}},            // above that the base rate wins
            {{240, 1}, {240, 1}, {240, 1}},          // both too high: the average stays
            {{0, 0}, {0, 0}, {0, 0}},                // nothing usable: stays unset
            {{25, 0}, {119, 1}, {119, 1}},
            {{0, 1}, {120, 1}, {0, 1}},              // the base rate's bound is 120
        };
        for (const Case &c : cases) {
            AVStream *stream = addVideoStream(context.data(), c.avg, c.real);
            const QSharedPointer<CVideoStreamInfo> info = makeVideoStreamInfo(stream, 7);
            QVERIFY2(sameRational(info->frameRate, c.expected),
                     qPrintable(QStringLiteral("%1/%2 -> %3/%4").arg(c.avg.num).arg(c.avg.den)
                                    .arg(info->frameRate.num).arg(info->frameRate.den)));
        }
    }

    void videoRecordReadsRotationAspectAndDuration()
    {
        const AVFormatContextPtr context = makeAVFormatContextPtr(avformat_alloc_context());
        AVStream *stream = addVideoStream(context.data(), {25, 1}, {25, 1});
        stream->duration = 180000; // 2 s at 90 kHz
        stream->codecpar->format = AV_PIX_FMT_YUV420P;
        stream->codecpar->bit_rate = 123456;
        stream->codecpar->codec_tag = 0x31637661;

        QSharedPointer<CVideoStreamInfo> info = makeVideoStreamInfo(stream, 7);
        QCOMPARE(info->index, 7); // the caller's index, not the stream's
        QCOMPARE(info->mediaType, -1);
        QCOMPARE(info->codecId, int(AV_CODEC_ID_H264));
        QCOMPARE(info->pixFmt, int(AV_PIX_FMT_YUV420P));
        QCOMPARE(info->codecTag, quint32(0x31637661));
        QCOMPARE(info->bitRate, qint64(123456));
        QCOMPARE(info->durationMs, qint64(2000));
        QCOMPARE(info->rotation, 0);
        QVERIFY(!info->isCover);
        QVERIFY(sameRational(info->sar, {0, 1})); // square in neither place: the codec's 0/1

        stream->time_base = AVRational {1, 0};
        QCOMPARE(makeVideoStreamInfo(stream, 0)->durationMs, qint64(0));
        stream->time_base = AVRational {1, 90000};

        stream->sample_aspect_ratio = AVRational {4, 3};
        QVERIFY(sameRational(makeVideoStreamInfo(stream, 0)->sar, {4, 3}));
        stream->sample_aspect_ratio = AVRational {1, 1};
        stream->codecpar->sample_aspect_ratio = AVRational {8, 9};
        QVERIFY(sameRational(makeVideoStreamInfo(stream, 0)->sar, {8, 9}));

        // Display matrices are counter-clockwise; the record holds clockwise degrees.
        const struct
        {
            double matrixDegrees;
            int rotation;
        } rotations[] = {{-90, 90}, {90, 270}, {180, 180}, {0, 0}, {-359.5, 0}};
        for (const auto &r : rotations) {
            AVStream *turned = addVideoStream(context.data(), {25, 1}, {25, 1});
            setRotation(turned, r.matrixDegrees);
            QCOMPARE(makeVideoStreamInfo(turned, 0)->rotation, r.rotation);
        }

        stream->disposition |= AV_DISPOSITION_ATTACHED_PIC;
        QVERIFY(makeVideoStreamInfo(stream, 0)->isCover);

        const QSharedPointer<CStreamInfo> generic = makeStreamInfo(stream, 3);
        QCOMPARE(generic->index, 3);
        QCOMPARE(generic->mediaType, int(AVMEDIA_TYPE_VIDEO));
        QCOMPARE(generic->codecId, int(AV_CODEC_ID_H264));
        QVERIFY(sameRational(generic->timeBase, {1, 90000}));
    }

    void displaySizeCorrectsAspectEvensAndTurns()
    {
        QCOMPARE(calcDisplaySize(1440, 1080, 90, {4, 3}), QSize(1080, 1920));
        QCOMPARE(calcDisplaySize(1440, 1080, 0, {4, 3}), QSize(1920, 1080));
        QCOMPARE(calcDisplaySize(1440, 1080, 180, {4, 3}), QSize(1920, 1080));
        QCOMPARE(calcDisplaySize(320, 240, 270, {1, 1}), QSize(240, 320));
        QCOMPARE(calcDisplaySize(101, 75, 0, {1, 2}), QSize(52, 76)); // 50.5 rounds to 51, then even
        QCOMPARE(calcDisplaySize(640, 360, 0, {0, 1}), QSize(640, 360)); // unknown aspect
        QCOMPARE(calcDisplaySize(640, 360, 45, {1, 1}), QSize(640, 360));

        CVideoStreamInfo info;
        info.width = 720;
        info.height = 576;
        info.sar = AVRational {16, 15};
        info.rotation = 90;
        QCOMPARE(info.displaySize(), QSize(576, 768));
    }

    void alphaFollowsTheComponentCount()
    {
        QVERIFY(isHasAlpha(AV_PIX_FMT_YUVA420P));
        QVERIFY(isHasAlpha(AV_PIX_FMT_RGBA));
        QVERIFY(isHasAlpha(AV_PIX_FMT_YA8));
        QVERIFY(!isHasAlpha(AV_PIX_FMT_YUV420P));
        QVERIFY(!isHasAlpha(AV_PIX_FMT_GRAY8));
        QVERIFY(!isHasAlpha(AV_PIX_FMT_NONE));
    }

    void describesARegularFile()
    {
        FFDemuxer closed;
        QVERIFY(closed.containerInfo().isNull());
        QVERIFY(closed.videoStreamInfo(0).isNull());

        FFDemuxer demuxer;
        QVERIFY(demuxer.open(TestMedia::path("sample.mp4")));
        const QSharedPointer<ContainerInfo> info = demuxer.containerInfo();
        QVERIFY(info);
        QCOMPARE(info->formatName, QStringLiteral("QuickTime / MOV"));
        QVERIFY(info->durationMs >= 3990 && info->durationMs <= 4100);
        QCOMPARE(info->startTime, qint64(0));
        QVERIFY(info->bitRate > 0);
        QCOMPARE(info->videoStreams.size(), 1);
        QCOMPARE(info->audioStreams.size(), 1);
        QCOMPARE(info->streams.size(), 2);
        QVERIFY(info->subtitleStreams.isEmpty());

        const int videoIndex = info->videoStreams.first()->index;
        const int audioIndex = info->audioStreams.first()->index;
        const QSharedPointer<CVideoStreamInfo> video = demuxer.videoStreamInfo(videoIndex);
        QVERIFY(video);
        QVERIFY(demuxer.videoStreamInfo(audioIndex).isNull());
        QCOMPARE(video->width, 320);
        QCOMPARE(video->height, 240);
        QVERIFY(sameRational(video->frameRate, {25, 1}));
        QCOMPARE(video->displaySize(), QSize(320, 240));
        QVERIFY(!video->isCover);
        QVERIFY(video->durationMs >= 3990 && video->durationMs <= 4010);

        const QSharedPointer<CAudioStreamInfo> audio = demuxer.audioStreamInfo(audioIndex);
        QVERIFY(audio);
        QVERIFY(demuxer.audioStreamInfo(videoIndex).isNull());
        QCOMPARE(audio->sampleRate, 48000);
        QCOMPARE(audio->channels, 1);
        QCOMPARE(audio->sampleFmt, int(AV_SAMPLE_FMT_FLTP));
        QCOMPARE(audio->channelLayout, quint64(AV_CH_LAYOUT_MONO));
        QCOMPARE(audio->codecId, int(AV_CODEC_ID_AAC));
        QCOMPARE(audio->mediaType, -1);
        QVERIFY(audio->bitRate > 0);

        const AVStream *stream = demuxer.formatCtx()->streams[videoIndex];
        QVERIFY(sameRational(info->getStreamTimeBase(videoIndex), stream->time_base));
        QVERIFY(sameRational(info->getStreamTimeBase(99), {1, 1000000}));
        QCOMPARE(info->streams.at(audioIndex)->mediaType, int(AVMEDIA_TYPE_AUDIO));
    }

    void describesRotationAspectAndStart()
    {
        const QSharedPointer<ContainerInfo> rotated = describe("media-rotated.mp4");
        QVERIFY(rotated && rotated->videoStreams.size() == 1);
        QCOMPARE(rotated->videoStreams.first()->rotation, 90);
        QCOMPARE(rotated->videoStreams.first()->displaySize(), QSize(240, 320));

        const QSharedPointer<ContainerInfo> anamorphic = describe("media-anamorphic.mp4");
        QVERIFY(anamorphic && anamorphic->videoStreams.size() == 1);
        QVERIFY(sameRational(anamorphic->videoStreams.first()->sar, {4, 3}));
        QCOMPARE(anamorphic->videoStreams.first()->displaySize(), QSize(1920, 1080));

        const QSharedPointer<ContainerInfo> late = describe("media-start1400.mp4");
        QVERIFY(late);
        QCOMPARE(late->startTime, qint64(1)); // whole seconds, truncated

        // Unknown container duration comes out negative; callers treat it as unknown.
        const QSharedPointer<ContainerInfo> endless = describe("media-noduration.mkv");
        QVERIFY(endless);
        QVERIFY(endless->durationMs < 0);
    }

    void recognisesCoverPictures()
    {
        // MP3 marks its picture as attached.
        const QSharedPointer<ContainerInfo> mp3 = describe("media-cover.mp3");
        QVERIFY(mp3 && mp3->videoStreams.size() == 1);
        QVERIFY(mp3->videoStreams.first()->isCover);
        QCOMPARE(mp3->videoStreams.first()->codecId, int(AV_CODEC_ID_PNG));

        // ASF does not: the first picture stream is found by its single packet, the
        // second is never tested although it has a single packet too.
        const QSharedPointer<ContainerInfo> wma = describe("media-cover.wma");
        QVERIFY(wma && wma->videoStreams.size() == 2);
        QCOMPARE(wma->videoStreams.at(0)->index, 1);
        QVERIFY(wma->videoStreams.at(0)->isCover);
        QVERIFY(!wma->videoStreams.at(1)->isCover);
        QVERIFY(isCoverStream(TestMedia::path("media-cover.wma"), 2));
        QVERIFY(!isCoverStream(TestMedia::path("media-cover.wma"), 0)); // the audio has many packets

        // Other containers are never counted, so a short video is not a cover.
        QVERIFY(!isCoverStream(TestMedia::path("media-anamorphic.mp4"), 0));
        LogCapture capture;
        QVERIFY(!isCoverStream(TestMedia::path("media-does-not-exist.wma"), 1));
        QVERIFY(!capture.records().isEmpty());
    }

    void listsSubtitleStreams()
    {
        const QSharedPointer<ContainerInfo> info = describe("media-subtitles.mkv");
        QVERIFY(info);
        QCOMPARE(info->subtitleStreams.size(), 2);
        QCOMPARE(info->subtitleStreams.at(0)->index, 1);
        QCOMPARE(info->subtitleStreams.at(1)->index, 2);
        QCOMPARE(info->subtitleStreams.at(0)->codecId, int(AV_CODEC_ID_SUBRIP));
        QCOMPARE(info->streams.size(), 3);
        QCOMPARE(info->streams.at(2)->mediaType, int(AVMEDIA_TYPE_SUBTITLE));
        QCOMPARE(info->formatName, QStringLiteral("Matroska / WebM"));
    }
};

QTEST_GUILESS_MAIN(TstMediaStreamInfo)
#include "tst_media_streaminfo.moc"
