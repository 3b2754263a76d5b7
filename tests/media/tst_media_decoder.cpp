#include "LogCapture.h"
#include "TestMedia.h"

#include "VeloranDec/FFDecoder.h"
#include "VeloranDec/FFDemuxer.h"
#include "VeloranDec/StreamInfoUtils.h"

#include <QtTest>

#include <cstring>
#include <thread>

using namespace Veloran;

namespace {

int defaultThreads()
{
    return static_cast<int>((std::thread::hardware_concurrency() + 1) / 2);
}

int streamOfType(const FFDemuxer &demuxer, AVMediaType type)
{
    return av_find_best_stream(demuxer.formatCtx().data(), type, -1, -1, nullptr, 0);
}

const AVStream *streamAt(const FFDemuxer &demuxer, int index)
{
    return demuxer.formatCtx()->streams[index];
}

struct DecodeResult
{
    int packets = 0;
    int frames = 0;
    qint64 samples = 0;
    QList<int> formats;
};

// Every packet of one stream through the decoder, then drained.
DecodeResult decodeStream(FFDemuxer &demuxer, FFDecoder &decoder, int stream)
{
    DecodeResult result;
    auto receiveAll = [&] {
        while (decoder.couldRecv()) {
            if (AVFramePtr frame = decoder.recvFrame()) {
                ++result.frames;
                result.samples += frame->nb_samples;
                if (!result.formats.contains(frame->format))
                    result.formats.append(frame->format);
            }
        }
    };
    while (AVPacketPtr packet = demuxer.readPacket(stream)) {
        ++result.packets;
        if (decoder.sendPacket(packet))
            receiveAll();
    }
    if (decoder.sendPacket(AVPacketPtr()))
        receiveAll();
    return result;
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

// The text of the first subtitle packet of `stream`, decoded; empty on failure.
struct SubtitleText
{
    bool decoded = false;
    QByteArray text;
    quint32 endMs = 0;
};

SubtitleText decodeSubtitlePacket(FFDecoder &decoder, const AVPacketPtr &packet)
{
    SubtitleText result;
    AVSubtitle subtitle;
    std::memset(&subtitle, 0, sizeof(subtitle));
    result.decoded = decoder.decodeSubtitle(packet, &subtitle);
    if (result.decoded) {
        if (subtitle.num_rects > 0 && subtitle.rects[0]->ass)
            result.text = subtitle.rects[0]->ass;
        result.endMs = subtitle.end_display_time;
        avsubtitle_free(&subtitle);
    }
    return result;
}

} // namespace

class TstMediaDecoder : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void decodesEveryVideoAndAudioFrame()
    {
        LogCapture capture;
        FFDemuxer demuxer;
        QVERIFY(demuxer.open(TestMedia::path("sample.mp4")));
        const int video = streamOfType(demuxer, AVMEDIA_TYPE_VIDEO);
        const int audio = streamOfType(demuxer, AVMEDIA_TYPE_AUDIO);

        FFDecoder videoDecoder;
        QVERIFY(!videoDecoder.couldRecv());
        QVERIFY(videoDecoder.open(streamAt(demuxer, video), -1));
        QCOMPARE(videoDecoder.codecContext()->thread_count, defaultThreads());
        FFDecoder threeThreads;
        QVERIFY(threeThreads.open(streamAt(demuxer, video), 3));
        QCOMPARE(threeThreads.codecContext()->thread_count, 3);
        QVERIFY(av_cmp_q(videoDecoder.codecContext()->time_base, streamAt(demuxer, video)->time_base) == 0);
        const DecodeResult videoResult = decodeStream(demuxer, videoDecoder, video);
        QCOMPARE(videoResult.packets, 100);
        QCOMPARE(videoResult.frames, 100);
        QCOMPARE(videoResult.formats, QList<int> {AV_PIX_FMT_YUV420P});

        // After the end of stream, sending is still accepted.
        QVERIFY(!videoDecoder.couldRecv());
        QVERIFY(videoDecoder.sendPacket(AVPacketPtr()));
        QVERIFY(videoDecoder.couldRecv());
        QVERIFY(videoDecoder.recvFrame().isNull());
        QVERIFY(!videoDecoder.couldRecv());

        // Flushing makes it usable again after a seek.
        videoDecoder.clearBuffer();
        demuxer.seekByStream(2000, video);
        QVERIFY(videoDecoder.sendPacket(demuxer.readPacket(video)));
        QVERIFY(videoDecoder.sendPacket(AVPacketPtr()));
        const AVFramePtr frame = videoDecoder.recvFrame();
        QVERIFY(frame);
        QCOMPARE(av_rescale_q(frame->pts, streamAt(demuxer, video)->time_base, AVRational {1, 1000}), int64_t(2000));

        demuxer.seek(0);
        FFDecoder audioDecoder;
        QVERIFY(audioDecoder.open(streamAt(demuxer, audio), -1));
        const DecodeResult audioResult = decodeStream(demuxer, audioDecoder, audio);
        QVERIFY(audioResult.packets > 180);
        // One AAC frame per packet, except the encoder's priming frame, which is skipped.
        QCOMPARE(audioResult.frames, audioResult.packets - 1);
        QVERIFY(audioResult.samples >= 4 * 48000 && audioResult.samples < 4 * 48000 + 1024);
        QCOMPARE(audioResult.formats, QList<int> {AV_SAMPLE_FMT_FLTP});
        QVERIFY(capture.records().isEmpty());

        audioDecoder.close();
        QVERIFY(audioDecoder.codecContext().isNull());
        QVERIFY(!audioDecoder.sendPacket(AVPacketPtr()));
        QVERIFY(audioDecoder.recvFrame().isNull());
    }

    void stillPicturesDecodeOnOneThread()
    {
        FFDemuxer mp3;
        QVERIFY(mp3.open(TestMedia::path("media-cover.mp3")));
        const int cover = streamOfType(mp3, AVMEDIA_TYPE_VIDEO);
        QVERIFY(streamAt(mp3, cover)->disposition & AV_DISPOSITION_ATTACHED_PIC);
        FFDecoder png;
        QVERIFY(png.open(streamAt(mp3, cover), -1));
        QCOMPARE(png.codecContext()->thread_count, 1);
        const DecodeResult picture = decodeStream(mp3, png, cover);
        QCOMPARE(picture.frames, 1);

        // A picture stream that is not marked (ASF) decodes as an ordinary MJPEG stream.
        FFDemuxer wma;
        QVERIFY(wma.open(TestMedia::path("media-cover.wma")));
        FFDecoder mjpeg;
        QVERIFY(mjpeg.open(streamAt(wma, 2), -1));
        QCOMPARE(mjpeg.codecContext()->width, 32);
        QVERIFY(mjpeg.open(streamAt(wma, 1), -1)); // reopening replaces the context
        QCOMPARE(mjpeg.codecContext()->width, 64);
        QCOMPARE(decodeStream(wma, mjpeg, 1).frames, 1);

        // A stream whose codec parameters say PNG, even without the flag.
        const AVFormatContextPtr context = makeAVFormatContextPtr(avformat_alloc_context());
        AVStream *stream = avformat_new_stream(context.data(), nullptr);
        stream->codecpar->codec_type = AVMEDIA_TYPE_VIDEO;
        stream->codecpar->codec_id = AV_CODEC_ID_PNG;
        FFDecoder bare;
        QVERIFY(bare.open(stream, -1));
        QCOMPARE(bare.codecContext()->thread_count, 1);
    }

    void vpxStreamsUseLibvpx()
    {
        const struct
        {
            const char *file;
            const char *decoder;
        } cases[] = {{"media-vp8.webm", "libvpx"}, {"media-vp9.webm", "libvpx-vp9"}};
        for (const auto &c : cases) {
            FFDemuxer demuxer;
            QVERIFY(demuxer.open(TestMedia::path(c.file)));
            FFDecoder decoder;
            QVERIFY(decoder.open(streamAt(demuxer, 0), -1));
            const AVCodec *expected = avcodec_find_decoder_by_name(c.decoder);
            QCOMPARE(QByteArray(decoder.codecContext()->codec->name),
                     QByteArray(expected ? c.decoder : avcodec_find_decoder(decoder.codecContext()->codec_id)->name));
            QCOMPARE(decodeStream(demuxer, decoder, 0).frames, 25);
        }

        // libvpx also decodes the alpha channel WebM keeps beside the picture.
        if (!avcodec_find_decoder_by_name("libvpx-vp9"))
            QSKIP("no libvpx-vp9 decoder");
        FFDemuxer demuxer;
        QVERIFY(demuxer.open(TestMedia::path("media-vp9alpha.webm")));
        FFDecoder decoder;
        QVERIFY(decoder.open(streamAt(demuxer, 0), -1));
        const DecodeResult result = decodeStream(demuxer, decoder, 0);
        QCOMPARE(result.frames, 25);
        QCOMPARE(result.formats, QList<int> {AV_PIX_FMT_YUVA420P});
        QVERIFY(isHasAlpha(AVPixelFormat(result.formats.first())));
    }

    void subtitlesDecodeInEitherEncoding()
    {
        LogCapture capture;
        FFDemuxer demuxer;
        QVERIFY(demuxer.open(TestMedia::path("media-subtitles.mkv")));
        const QByteArray first = QStringLiteral("\u4e2d\u6587\u5b57\u5e55").toUtf8();
        const QByteArray second = QStringLiteral("\u7b2c\u4e8c\u884c").toUtf8();

        FFDecoder utf8;
        QVERIFY(utf8.open(streamAt(demuxer, 1), -1));
        QCOMPARE(utf8.codecCtxCharEnc(), QStringLiteral("UTF-8"));
        QCOMPARE(utf8.codecContext()->sub_charenc_mode, FF_SUB_CHARENC_MODE_PRE_DECODER);
        SubtitleText text = decodeSubtitlePacket(utf8, demuxer.readPacket(1));
        QVERIFY(text.decoded);
        QVERIFY2(text.text.endsWith(first), text.text.constData());
        QCOMPARE(text.endMs, quint32(1000));
        QCOMPARE(utf8.codecCtxCharEnc(), QStringLiteral("UTF-8"));

        // The GBK stream fails as UTF-8 and decodes after the retry, which sticks.
        demuxer.seek(0);
        FFDecoder gbk;
        QVERIFY(gbk.open(streamAt(demuxer, 2), -1));
        text = decodeSubtitlePacket(gbk, demuxer.readPacket(2));
        QVERIFY(text.decoded);
        QVERIFY2(text.text.endsWith(first), text.text.toHex().constData());
        QCOMPARE(text.endMs, quint32(1000));
        QCOMPARE(gbk.codecCtxCharEnc(), QStringLiteral("GBK"));
        text = decodeSubtitlePacket(gbk, demuxer.readPacket(2));
        QVERIFY(text.decoded);
        QVERIFY(text.text.endsWith(second));
        QCOMPARE(gbk.codecCtxCharEnc(), QStringLiteral("GBK"));

        // Bytes that are neither pass through unconverted in the last mode.
        const AVRational timeBase = gbk.codecContext()->time_base;
        const QByteArray junk("\xff\xfe\x80 x", 5);
        text = decodeSubtitlePacket(gbk, makePacket(junk, 0, av_rescale_q(500, {1, 1000}, timeBase)));
        QVERIFY(text.decoded);
        QVERIFY(text.text.endsWith(junk));
        QCOMPARE(text.endMs, quint32(500));
        QCOMPARE(gbk.codecCtxCharEnc(), QStringLiteral("UTF-8"));
        QCOMPARE(gbk.codecContext()->sub_charenc_mode, FF_SUB_CHARENC_MODE_IGNORE);
        QVERIFY(av_cmp_q(gbk.codecContext()->time_base, timeBase) == 0);
        QVERIFY(capture.recordTexts().isEmpty());

        QVERIFY(gbk.openSubCodecAgain("GBK", FF_SUB_CHARENC_MODE_AUTOMATIC));
        QCOMPARE(gbk.codecCtxCharEnc(), QStringLiteral("GBK"));

        // A character set iconv does not know leaves an unopened decoder; the next
        // packet still decodes through the retries.
        QVERIFY(!gbk.openSubCodecAgain("NO-SUCH-CHARSET", FF_SUB_CHARENC_MODE_PRE_DECODER));
        QCOMPARE(capture.recordTexts().size(), 1);
        QVERIFY(capture.recordTexts().first().startsWith(QStringLiteral("avcodec_parameters_to_context error.")));
        demuxer.seek(0);
        text = decodeSubtitlePacket(gbk, demuxer.readPacket(2));
        QVERIFY(text.decoded);
        QVERIFY(text.text.endsWith(first));
        QCOMPARE(gbk.codecCtxCharEnc(), QStringLiteral("GBK"));
    }

    void badInputsFailQuietlyOrWithTheirLogLines()
    {
        LogCapture capture;
        FFDecoder decoder;
        QVERIFY(!decoder.open(nullptr, -1));
        QVERIFY(!decoder.sendPacket(AVPacketPtr()));
        QVERIFY(decoder.recvFrame().isNull());
        QVERIFY(!decoder.openSubCodecAgain("GBK", 0));
        AVSubtitle subtitle;
        std::memset(&subtitle, 0, sizeof(subtitle));
        QVERIFY(!decoder.decodeSubtitle(makePacket("x", 0, 1), &subtitle));
        QVERIFY(decoder.codecCtxCharEnc().isEmpty());
        QVERIFY(decoder.hwDevice() == nullptr);
        QVERIFY(decoder.hwFramesContext() == nullptr);
        decoder.clearBuffer();
        QVERIFY(capture.records().isEmpty());

        const AVFormatContextPtr context = makeAVFormatContextPtr(avformat_alloc_context());
        AVStream *stream = avformat_new_stream(context.data(), nullptr);
        stream->codecpar->codec_type = AVMEDIA_TYPE_DATA;
        stream->codecpar->codec_id = AV_CODEC_ID_NONE;
        QVERIFY(!decoder.open(stream, -1));
        QCOMPARE(capture.recordTexts(), QStringList {QStringLiteral("---player--- avcodec_find_decoder failed")});
        QVERIFY(capture.records().first().function().contains(QStringLiteral("FFDecoder::open")));
        QCOMPARE(capture.records().first().sourcePath(), QStringLiteral("VeloranDec/FFDecoder"));

        // Garbage where a PNG picture should be is refused and logged.
        capture.clear();
        stream->codecpar->codec_type = AVMEDIA_TYPE_VIDEO;
        stream->codecpar->codec_id = AV_CODEC_ID_PNG;
        QVERIFY(decoder.open(stream, -1));
        QVERIFY(!decoder.sendPacket(makePacket(QByteArray(256, '\x5a'), 0, 1)));
        QVERIFY(!decoder.couldRecv());
        QVERIFY(decoder.recvFrame().isNull());
        QCOMPARE(capture.records().size(), 1);
        QVERIFY(capture.records().first().text().startsWith(QStringLiteral("avcodec_send_packet error.")));
    }
};

QTEST_GUILESS_MAIN(TstMediaDecoder)
#include "tst_media_decoder.moc"
