#include "LogCapture.h"
#include "ScratchFiles.h"
#include "TestMedia.h"

#include "VeloranBaseEntry.h"
#include "VeloranDec/FFDecoder.h"
#include "VeloranDec/FFDemuxer.h"
#include "VeloranDec/FFVobDemuxer.h"
#include "VeloranDec/StreamInfoUtils.h"

#include <QRandomGenerator>
#include <QResource>
#include <QtTest>

#include <cstring>

extern "C" {
#include <libavutil/display.h>
}

using namespace Veloran;

namespace {

int streamOfType(const FFDemuxer &demuxer, AVMediaType type)
{
    return av_find_best_stream(demuxer.formatCtx().data(), type, -1, -1, nullptr, 0);
}

const AVStream *streamAt(const FFDemuxer &demuxer, int index)
{
    return demuxer.formatCtx()->streams[index];
}

// Packets per stream index, to the end.
QMap<int, int> packetsToEnd(FFDemuxer &demuxer)
{
    QMap<int, int> perStream;
    while (AVPacketPtr packet = demuxer.readPacket())
        ++perStream[packet->stream_index];
    return perStream;
}

// Media time in ms of the next packet of `stream`.
qint64 nextPacketMs(FFDemuxer &demuxer, int stream)
{
    const AVPacketPtr packet = demuxer.readPacket(stream);
    return packet ? av_rescale_q(packet->pts, streamAt(demuxer, stream)->time_base, AVRational {1, 1000}) : -1;
}

QString writeScratch(const QString &name, const QByteArray &bytes)
{
    return ScratchFiles::write(TestMedia::scratchDir(QStringLiteral("media-") + name) + QLatin1Char('/') + name, bytes);
}

AVPacketPtr makePacket(const QByteArray &bytes, int64_t pts, int64_t duration)
{
    AVPacketPtr packet = makeAVPacketPtr(av_packet_alloc());
    if (!packet || av_new_packet(packet.data(), bytes.size()) < 0)
        return {};
    std::memcpy(packet->data, bytes.constData(), bytes.size());
    packet->pts = packet->dts = pts;
    packet->duration = duration;
    return packet;
}

// The text of one decoded subtitle packet; empty when it did not decode.
QByteArray subtitleText(FFDecoder &decoder, const AVPacketPtr &packet)
{
    AVSubtitle subtitle;
    std::memset(&subtitle, 0, sizeof(subtitle));
    if (!decoder.decodeSubtitle(packet, &subtitle))
        return {};
    const QByteArray text = subtitle.num_rects > 0 && subtitle.rects[0]->ass ? subtitle.rects[0]->ass : "";
    avsubtitle_free(&subtitle);
    return text;
}

AVStream *addVideoStream(AVFormatContext *context, AVRational avgRate, AVRational realRate)
{
    AVStream *stream = avformat_new_stream(context, nullptr);
    stream->codecpar->codec_type = AVMEDIA_TYPE_VIDEO;
    stream->codecpar->codec_id = AV_CODEC_ID_H264;
    stream->avg_frame_rate = avgRate;
    stream->r_frame_rate = realRate;
    stream->time_base = AVRational {1, 90000};
    return stream;
}

QSharedPointer<ContainerInfo> describe(const QString &name)
{
    FFDemuxer demuxer;
    return demuxer.open(TestMedia::path(name)) ? demuxer.containerInfo() : QSharedPointer<ContainerInfo>();
}

} // namespace

// The demuxer, the decoder and the stream descriptions.
class TstMedia : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase() { QVERIFY(QResource::registerResource(TestMedia::path("media-resource.rcc"))); }
    void cleanupTestCase() { QVERIFY(QResource::unregisterResource(TestMedia::path("media-resource.rcc"))); }

    // sample.mp4 as a file, inside Qt resources (read and seeked through callbacks), and read by the VOB
    // demuxer, which reads any file as the plain one until it finds chapters.
    void readsEveryPacketOnce_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<bool>("vob");
        QTest::newRow("file") << TestMedia::path("sample.mp4") << false;
        QTest::newRow("Qt resource") << ":/media/clip.mp4" << false;
        QTest::newRow("VOB demuxer") << TestMedia::path("sample.mp4") << true;
    }

    void readsEveryPacketOnce()
    {
        QFETCH(QString, path);
        QFETCH(bool, vob);
        LogCapture capture;
        const QSharedPointer<FFDemuxer> demuxer = FFDemuxer::createDemuxer(path, vob);
        QVERIFY(demuxer->open(path));
        const int video = streamOfType(*demuxer, AVMEDIA_TYPE_VIDEO);
        const QMap<int, int> packets = packetsToEnd(*demuxer);
        QCOMPARE(packets.value(video), 100); // 4 s at 25 fps
        QVERIFY(demuxer->readPacket().isNull()); // stays at the end
        // One stream at a time: the others are read and dropped.
        demuxer->seek(0);
        int videoPackets = 0;
        for (AVPacketPtr packet; (packet = demuxer->readPacket(video)); ++videoPackets)
            QCOMPARE(packet->stream_index, video);
        QCOMPARE(videoPackets, 100);
        demuxer->seek(2500);
        QCOMPARE(nextPacketMs(*demuxer, video), qint64(2000));
        // Opening again replaces the input while the old one is still open.
        QVERIFY(demuxer->open(path));
        QCOMPARE(packetsToEnd(*demuxer), packets);
        const QString chapters = QStringLiteral("---demux--- vob chapters: 1 in ") + path; // the VOB index's one scan
        QCOMPARE(capture.recordTexts(), vob ? QStringList {chapters} : QStringList());
    }

    void seeksLandOnTheKeyframeBefore_data()
    {
        QTest::addColumn<QString>("file");
        QTest::addColumn<bool>("byStream");
        QTest::addColumn<qint64>("target");
        QTest::addColumn<qint64>("landing");
        // sample.mp4 has a keyframe every second.
        QTest::newRow("seek") << "sample.mp4" << false << qint64(2500) << qint64(2000);
        QTest::newRow("by stream, last ms") << "sample.mp4" << true << qint64(3999) << qint64(3000);
        QTest::newRow("on a keyframe") << "sample.mp4" << true << qint64(1000) << qint64(1000);
        // The clock starts at 1.4 s, keyframes every 200 ms: times count from the container start, 0 unshifted.
        QTest::newRow("offset start, 0") << "media-start1400.mp4" << false << qint64(0) << qint64(1400);
        QTest::newRow("offset start, 1 ms") << "media-start1400.mp4" << false << qint64(1) << qint64(1400);
        QTest::newRow("offset start, 1 s") << "media-start1400.mp4" << false << qint64(1000) << qint64(2400);
        QTest::newRow("offset start, by stream") << "media-start1400.mp4" << true << qint64(2100) << qint64(3400);
    }

    void seeksLandOnTheKeyframeBefore()
    {
        QFETCH(QString, file);
        QFETCH(bool, byStream);
        QFETCH(qint64, target);
        QFETCH(qint64, landing);
        LogCapture capture;
        FFDemuxer demuxer;
        QVERIFY(demuxer.open(TestMedia::path(file)));
        const int video = streamOfType(demuxer, AVMEDIA_TYPE_VIDEO);
        packetsToEnd(demuxer);
        byStream ? demuxer.seekByStream(target, video) : demuxer.seek(target);
        QCOMPARE(nextPacketMs(demuxer, video), landing);

        // Stream seeks with no such stream change nothing.
        demuxer.seekByStream(0, -1);
        demuxer.seekByStream(0, int(demuxer.formatCtx()->nb_streams));
        QVERIFY(nextPacketMs(demuxer, video) > landing);
        QVERIFY(capture.records().isEmpty());
    }

    void failedSeeksAreLoggedAndLeaveTheDemuxerUsable()
    {
        FFDemuxer demuxer;
        QVERIFY(demuxer.open(TestMedia::path("media-cover.mp3")));
        const int audio = streamOfType(demuxer, AVMEDIA_TYPE_AUDIO);
        const int cover = streamOfType(demuxer, AVMEDIA_TYPE_VIDEO);
        LogCapture capture;
        demuxer.seek(-5000); // MP3 refuses times before its start
        QCOMPARE(capture.recordTexts(), QStringList {"---player--- av_seek_frame: -1: Operation not permitted"});
        QVERIFY(demuxer.readPacket(audio));
        // The cover picture cannot be seeked in; the fallback over all streams runs.
        capture.clear();
        demuxer.seekByStream(500, cover);
        QCOMPARE(capture.recordTexts(),
                 QStringList {QStringLiteral("---player--- seekByStream streamIndex: %1,res : -1: Operation not permitted").arg(cover)});
        QVERIFY(demuxer.readPacket(audio));
        // MP4 cannot seek by byte position (the VOB demuxer's chapter seeks do, on MPEG-PS).
        capture.clear();
        QVERIFY(demuxer.open(TestMedia::path("sample.mp4")));
        demuxer.seekByFilePos(1000);
        QVERIFY(capture.recordTexts().size() == 1 && capture.recordTexts().first().startsWith("---player--- seekByFilePos av_seek_frame: "));
        QVERIFY(demuxer.readPacket());
    }

    void badInputsFailWithTheirLogLines_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<qint64>("size");
        QTest::newRow("missing") << TestMedia::path("media-does-not-exist.mp4") << qint64(0);
        QTest::newRow("zero bytes") << writeScratch("empty.mp4", {}) << qint64(0);
        QTest::newRow("truncated") << writeScratch("truncated.mp4", ScratchFiles::read(TestMedia::path("sample.mp4")).left(4096)) << qint64(4096);
        QByteArray noise(65536, Qt::Uninitialized);
        QRandomGenerator(20261122).fillRange(reinterpret_cast<quint32 *>(noise.data()), noise.size() / 4);
        QTest::newRow("random bytes") << writeScratch("noise.mov", noise) << qint64(noise.size());
    }

    void badInputsFailWithTheirLogLines()
    {
        QFETCH(QString, path);
        QFETCH(qint64, size);
        QVERIFY(!path.isEmpty());
        FFDemuxer demuxer;
        QVERIFY(demuxer.open(TestMedia::path("sample.mp4")));
        LogCapture capture;
        QVERIFY(!demuxer.open(path));
        const QStringList texts = capture.recordTexts();
        QCOMPARE(texts.size(), 2);
        QVERIFY2(texts.at(0).startsWith("---demux--- avformat_open_input: -"), qPrintable(texts.at(0)));
        QCOMPARE(texts.at(1), QStringLiteral("---demux--- Could not open the file . fileSize :%1").arg(size));
        // The file opened before is closed.
        QVERIFY(demuxer.formatCtx().isNull());
        QVERIFY(demuxer.readPacket().isNull());
        QVERIFY(demuxer.containerInfo().isNull());

        // An empty path fails without a word; a missing resource with its own line.
        capture.clear();
        QVERIFY(!demuxer.open(QString()));
        QVERIFY(capture.records().isEmpty() && capture.messages().isEmpty());
        QVERIFY(!demuxer.open(":/media/nothing-here.mp4"));
        QCOMPARE(capture.recordTexts(), QStringList {"mQrcFile->open failed."});
    }

    void factoryChoosesTheVobDemuxerOnlyWhenAsked()
    {
        PropertyMap *properties = VeloranBaseEntry()->properties();
        const QString vob = QStringLiteral("/media/dvd/VTS_01_1.VOB");
        auto isVob = [](const QSharedPointer<FFDemuxer> &demuxer) { return qobject_cast<FFVobDemuxer *>(demuxer.data()) != nullptr; };
        properties->remove("kVob_DeMux_Enabled");
        QVERIFY(!isVob(FFDemuxer::createDemuxer(vob, false)));
        QVERIFY(isVob(FFDemuxer::createDemuxer(vob, true)));
        properties->setValue("kVob_DeMux_Enabled", true);
        QVERIFY(isVob(FFDemuxer::createDemuxer("a.vob", false)));
        QVERIFY(!isVob(FFDemuxer::createDemuxer("a.mp4", false)));
        properties->remove("kVob_DeMux_Enabled");
    }

    void streamRecordsReadRateRotationAndAspect()
    {
        const AVFormatContextPtr context = makeAVFormatContextPtr(avformat_alloc_context());
        // The average rate is believed up to 120 fps, then the base rate below 120.
        const AVRational rates[][3] = {{{0, 0}, {30000, 1001}, {30000, 1001}}, {{120, 1}, {30, 1}, {120, 1}},
                                       {{121, 1}, {30, 1}, {30, 1}}, {{0, 1}, {120, 1}, {0, 1}}};
        for (const auto &rate : rates) {
            const AVRational got = makeVideoStreamInfo(addVideoStream(context.data(), rate[0], rate[1]), 0)->frameRate;
            QVERIFY2(av_cmp_q(got, rate[2]) == 0,
                     qPrintable(QStringLiteral("%1/%2 -> %3/%4").arg(rate[0].num).arg(rate[0].den).arg(got.num).arg(got.den)));
        }

        // Display matrices turn counter-clockwise; the record holds clockwise degrees.
        const double turns[][2] = {{-90, 90}, {90, 270}, {-359.5, 0}};
        for (const auto &turn : turns) {
            AVStream *stream = addVideoStream(context.data(), {25, 1}, {25, 1});
            auto *matrix = reinterpret_cast<int32_t *>(av_stream_new_side_data(stream, AV_PKT_DATA_DISPLAYMATRIX, 36));
            av_display_rotation_set(matrix, -turn[0]);
            QCOMPARE(makeVideoStreamInfo(stream, 0)->rotation, int(turn[1]));
        }

        // The stream's pixel aspect unless square, else the codec's.
        AVStream *stream = addVideoStream(context.data(), {25, 1}, {25, 1});
        stream->sample_aspect_ratio = AVRational {4, 3};
        QCOMPARE(av_cmp_q(makeVideoStreamInfo(stream, 0)->sar, AVRational {4, 3}), 0);
        stream->sample_aspect_ratio = AVRational {1, 1};
        stream->codecpar->sample_aspect_ratio = AVRational {8, 9};
        QCOMPARE(av_cmp_q(makeVideoStreamInfo(stream, 0)->sar, AVRational {8, 9}), 0);

        // Display size: aspect applied to the width, evened, turned.
        QCOMPARE(calcDisplaySize(1440, 1080, 90, {4, 3}), QSize(1080, 1920));
        QCOMPARE(calcDisplaySize(101, 75, 0, {1, 2}), QSize(52, 76)); // 50.5 rounds to 51, then even
        QCOMPARE(calcDisplaySize(640, 360, 0, {0, 1}), QSize(640, 360)); // unknown aspect
        QVERIFY(isHasAlpha(AV_PIX_FMT_YUVA420P) && !isHasAlpha(AV_PIX_FMT_YUV420P));
    }

    void describesFiles()
    {
        FFDemuxer demuxer;
        QVERIFY(demuxer.open(TestMedia::path("sample.mp4")));
        const QSharedPointer<ContainerInfo> info = demuxer.containerInfo();
        QCOMPARE(info->startTime, qint64(0));
        QVERIFY(info->videoStreams.size() == 1 && info->audioStreams.size() == 1 && info->subtitleStreams.isEmpty());
        const int videoIndex = info->videoStreams.first()->index;
        const int audioIndex = info->audioStreams.first()->index;
        QVERIFY(demuxer.videoStreamInfo(audioIndex).isNull() && demuxer.audioStreamInfo(videoIndex).isNull());
        QCOMPARE(demuxer.videoStreamInfo(videoIndex)->displaySize(), QSize(320, 240));
        QVERIFY(qAbs(demuxer.videoStreamInfo(videoIndex)->durationMs - 4000) <= 10);
        QCOMPARE(demuxer.audioStreamInfo(audioIndex)->sampleRate, 48000);

        QCOMPARE(describe("media-start1400.mp4")->startTime, qint64(1)); // whole seconds, truncated
        // No duration at all: unknown in the description, 0 for the demuxer, which still reads to the end.
        QVERIFY(demuxer.open(TestMedia::path("media-noduration.mkv")));
        QVERIFY(demuxer.containerInfo()->durationMs < 0 && demuxer.durationMs() == 0);
        QCOMPARE(packetsToEnd(demuxer).value(0), 25);
        const QSharedPointer<ContainerInfo> subtitles = describe("media-subtitles.mkv");
        QCOMPARE(subtitles->subtitleStreams.size(), 2);
        QCOMPARE(subtitles->subtitleStreams.at(1)->index, 2);
        QCOMPARE(subtitles->streams.at(2)->mediaType, int(AVMEDIA_TYPE_SUBTITLE));
    }

    void recognisesCoverPictures()
    {
        // MP3 marks its picture as attached.
        const QSharedPointer<ContainerInfo> mp3 = describe("media-cover.mp3");
        QVERIFY(mp3 && mp3->videoStreams.size() == 1 && mp3->videoStreams.first()->isCover);
        // ASF does not: the first picture stream is found by its single packet, the second never tested.
        const QSharedPointer<ContainerInfo> wma = describe("media-cover.wma");
        QVERIFY(wma && wma->videoStreams.size() == 2 && wma->videoStreams.at(0)->index == 1);
        QVERIFY(wma->videoStreams.at(0)->isCover && !wma->videoStreams.at(1)->isCover);
        QVERIFY(isCoverStream(TestMedia::path("media-cover.wma"), 2));
        QVERIFY(!isCoverStream(TestMedia::path("media-cover.wma"), 0)); // the audio has many packets
        LogCapture capture;
        QVERIFY(!isCoverStream(TestMedia::path("media-does-not-exist.wma"), 1));
        QVERIFY(!capture.records().isEmpty());
    }

    void gbkSubtitlesDecodeAfterARetry()
    {
        LogCapture capture;
        FFDemuxer demuxer;
        QVERIFY(demuxer.open(TestMedia::path("media-subtitles.mkv")));
        const QByteArray first = QStringLiteral("\u4e2d\u6587\u5b57\u5e55").toUtf8();
        // The GBK stream fails as UTF-8 and decodes after the retry, which sticks.
        FFDecoder gbk;
        QVERIFY(gbk.open(streamAt(demuxer, 2), -1));
        QVERIFY(subtitleText(gbk, demuxer.readPacket(2)).endsWith(first));
        QCOMPARE(gbk.codecCtxCharEnc(), QStringLiteral("GBK"));
        QVERIFY(subtitleText(gbk, demuxer.readPacket(2)).endsWith(QStringLiteral("\u7b2c\u4e8c\u884c").toUtf8()));
        QVERIFY(capture.recordTexts().isEmpty());

        // A character set iconv does not know leaves an unopened decoder; the next
        // packet still decodes through the retries.
        QVERIFY(!gbk.openSubCodecAgain("NO-SUCH-CHARSET", FF_SUB_CHARENC_MODE_PRE_DECODER));
        QCOMPARE(capture.recordTexts().size(), 1);
        QVERIFY(capture.recordTexts().first().startsWith("avcodec_parameters_to_context error."));
        demuxer.seek(0);
        QVERIFY(subtitleText(gbk, demuxer.readPacket(2)).endsWith(first));
        QCOMPARE(gbk.codecCtxCharEnc(), QStringLiteral("GBK"));
    }

    void decoderBadInputsFailQuietlyOrWithTheirLogLines()
    {
        LogCapture capture;
        FFDecoder decoder;
        QVERIFY(!decoder.open(nullptr, -1));
        QVERIFY(!decoder.sendPacket(AVPacketPtr()));
        QVERIFY(decoder.recvFrame().isNull());
        QVERIFY(!decoder.openSubCodecAgain("GBK", 0));
        QVERIFY(subtitleText(decoder, makePacket("x", 0, 1)).isNull());
        QVERIFY(capture.records().isEmpty());

        const AVFormatContextPtr context = makeAVFormatContextPtr(avformat_alloc_context());
        AVStream *stream = avformat_new_stream(context.data(), nullptr);
        stream->codecpar->codec_type = AVMEDIA_TYPE_DATA;
        QVERIFY(!decoder.open(stream, -1));
        QCOMPARE(capture.recordTexts(), QStringList {"---player--- avcodec_find_decoder failed"});

        stream->codecpar->codec_type = AVMEDIA_TYPE_VIDEO;
        stream->codecpar->codec_id = AV_CODEC_ID_PNG;
        QVERIFY(decoder.open(stream, -1));
        QCOMPARE(decoder.codecContext()->thread_count, 1); // pictures by codec, flag or not
    }

    // Send and receive name their step as FFmpeg's decode loop does. Ops: "send" the next packet, "all" (each
    // packet, receiving after each), "drain", "recv" (until no frame comes), "rewind" the demuxer, "flush" the
    // decoder, "garbage" (noise to a PNG decoder); "-" is no step. One thread: each packet gives its frame at once.
    void decodeStepsFollowFFmpegsLoop_data()
    {
        QTest::addColumn<QString>("ops");
        QTest::addColumn<QString>("steps");
        QTest::addColumn<int>("frames");
        QTest::addColumn<QString>("log");
        QTest::newRow("a packet gives its frame") << "send recv" << "Accepted NeedsInput" << 1 << "";
        QTest::newRow("drained, End after the last frame") << "all drain recv drain recv" << "Accepted Accepted End End End" << 100 << "";
        QTest::newRow("after the end only a flush takes packets") << "all drain recv rewind send recv flush rewind send recv"
                                                                  << "Accepted Accepted End - End End - - Accepted NeedsInput" << 101 << "";
        QTest::newRow("garbage is refused") << "garbage recv" << "Error NeedsInput" << 0 << "avcodec_send_packet error.";
        QTest::newRow("closed") << "send recv drain" << "Error Error Error" << 0 << "";
    }

    void decodeStepsFollowFFmpegsLoop()
    {
        QFETCH(QString, ops);
        QFETCH(QString, log);
        LogCapture capture;
        FFDemuxer demuxer;
        QVERIFY(demuxer.open(TestMedia::path("media-start1400.mp4")));
        const int stream = streamOfType(demuxer, AVMEDIA_TYPE_VIDEO);
        const AVFormatContextPtr png = makeAVFormatContextPtr(avformat_alloc_context());
        AVStream *pngStream = avformat_new_stream(png.data(), nullptr);
        pngStream->codecpar->codec_type = AVMEDIA_TYPE_VIDEO;
        pngStream->codecpar->codec_id = AV_CODEC_ID_PNG;
        FFDecoder decoder;
        if (QTest::currentDataTag() != QLatin1String("closed"))
            QVERIFY(decoder.open(ops.startsWith("garbage") ? pngStream : streamAt(demuxer, stream), 1));

        const QMetaEnum names = QMetaEnum::fromType<FFDecoder::Step>();
        int decoded = 0;
        int misfits = 0; // a frame missing with Frame, or one coming with any other step
        auto receiveAll = [&] {
            FFDecoder::Received received;
            for (received = decoder.receive(); received.step == FFDecoder::Step::Frame; received = decoder.receive()) {
                misfits += received.frame && received.frame->width == 160 ? 0 : 1;
                ++decoded;
            }
            misfits += received.frame ? 1 : 0;
            return received.step;
        };
        QStringList taken;
        for (const QString &op : ops.split(' ')) {
            FFDecoder::Step step = FFDecoder::Step::Error;
            if (op == "send" || op == "drain") {
                step = decoder.send(op == "send" ? demuxer.readPacket(stream) : AVPacketPtr());
            } else if (op == "all") {
                while (const AVPacketPtr packet = demuxer.readPacket(stream)) {
                    step = decoder.send(packet);
                    receiveAll();
                }
            } else if (op == "recv") {
                step = receiveAll();
            } else if (op == "garbage") {
                step = decoder.send(makePacket(QByteArray(256, '\x5a'), 0, 1));
            } else {
                op == "rewind" ? demuxer.seek(0) : decoder.clearBuffer();
                taken << "-";
                continue;
            }
            taken << names.valueToKey(int(step));
        }
        QTEST(taken.join(' '), "steps");
        QTEST(decoded, "frames");
        QCOMPARE(misfits, 0);
        // Only what FFmpeg refused counts as an error, logged once.
        QCOMPARE(decoder.hasError(), !log.isEmpty());
        const QStringList logged = capture.recordTexts();
        QVERIFY2(log.isEmpty() ? logged.isEmpty() : logged.size() == 1 && logged.first().startsWith(log), qPrintable(logged.join('|')));
    }
};

QTEST_GUILESS_MAIN(TstMedia)
#include "tst_media.moc"
