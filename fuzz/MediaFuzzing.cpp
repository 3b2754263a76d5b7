#include "FFmpegJoint.h"
#include "FuzzCheck.h"
#include "FuzzTimes.h"
#include "FuzzTargets.h"
#include "InMemoryResource.h"

#include "VeloranDec/FFAudioStreamReader.h"
#include "VeloranDec/FFDecoder.h"
#include "VeloranDec/FFDemuxer.h"
#include "VeloranDec/FFVideoStreamReader.h"

#include <QByteArray>

#include <memory>
#include <vector>

namespace Veloran::Fuzz {

namespace {

// Bounds that keep one run short whatever the input claims.
constexpr int kMaxStreams = 8;
constexpr int kMaxPackets = 300;
constexpr int kMaxFramesPerPacket = 32;

struct SubtitleGuard
{
    AVSubtitle subtitle {};
    ~SubtitleGuard() { avsubtitle_free(&subtitle); }
};

// Receives what one send made ready; a frame comes with every Frame step.
void receiveFrames(FFDecoder &decoder)
{
    for (int i = 0; i < kMaxFramesPerPacket; ++i) {
        const FFDecoder::Received received = decoder.receive();
        VR_FUZZ_CHECK((received.step == FFDecoder::Step::Frame) == bool(received.frame),
                      "a frame comes with the Frame step only");
        if (received.step != FFDecoder::Step::Frame)
            return;
    }
}

bool taken(FFDecoder::Step step)
{
    return step == FFDecoder::Step::Accepted || step == FFDecoder::Step::End;
}

void decodeEveryStream(const QString &path)
{
    FFDemuxer demuxer;
    if (!demuxer.open(path))
        return;
    const AVFormatContextPtr context = demuxer.formatCtx();
    VR_FUZZ_CHECK(context, "an open demuxer has a format context");
    demuxer.containerInfo();

    const int streams = qMin(static_cast<int>(context->nb_streams), kMaxStreams);
    std::vector<std::unique_ptr<FFDecoder>> decoders(streams);
    for (int i = 0; i < streams; ++i) {
        auto decoder = std::make_unique<FFDecoder>();
        if (decoder->open(context->streams[i], 1))
            decoders[i] = std::move(decoder);
    }

    for (int n = 0; n < kMaxPackets; ++n) {
        const AVPacketPtr packet = demuxer.readPacket();
        if (!packet)
            break;
        VR_FUZZ_CHECK(packet->size > 0, "packets handed out are not empty");
        const int index = packet->stream_index;
        if (index < 0 || index >= streams || !decoders[index])
            continue;
        FFDecoder &decoder = *decoders[index];
        if (context->streams[index]->codecpar->codec_type == AVMEDIA_TYPE_SUBTITLE) {
            SubtitleGuard guard;
            decoder.decodeSubtitle(packet, &guard.subtitle);
        } else if (taken(decoder.send(packet))) {
            receiveFrames(decoder);
        }
    }
    for (auto &decoder : decoders) {
        if (decoder && decoder->codecContext()->codec_type != AVMEDIA_TYPE_SUBTITLE && taken(decoder->send({})))
            receiveFrames(*decoder);
    }

    // Seeking back after the end must leave the demuxer readable.
    demuxer.seek(demuxer.durationMs() / 2);
    demuxer.readPacket();
    demuxer.seekByFilePos(0);
    demuxer.readPacket();
}

void readVideo(const QString &path)
{
    FFVideoStreamReader reader;
    if (!reader.openStream(path, AVMEDIA_TYPE_VIDEO, -1))
        return;
    reader.readNextFrame();
    for (long long t : probeTimes(reader.demuxDurationMs())) {
        const AVFramePtr frame = reader.seekAndReadNextFrame(t, true);
        VR_FUZZ_CHECK(!frame || frame->pts >= 0, "frame times are not negative");
    }
    const long long middle = reader.demuxDurationMs() / 2;
    for (const AVFramePtr &frame : reader.revertSeekAndReadFrame(middle, 1))
        VR_FUZZ_CHECK(frame, "backward reads hold frames only");
}

void readAudio(const QString &path)
{
    FFAudioStreamReader reader;
    if (!reader.openStream(path, AVMEDIA_TYPE_AUDIO, -1))
        return;
    for (long long t : probeTimes(reader.demuxDurationMs()))
        reader.seekAndReadNextFrame(t, true);
}

} // namespace

void fuzzMedia(const uint8_t *data, size_t size)
{
    // Resource images carry 32-bit sizes; libFuzzer inputs stay far below.
    if (size > (1u << 30))
        return;
    const InMemoryResource resource(QByteArray(reinterpret_cast<const char *>(data), static_cast<int>(size)));
    VR_FUZZ_CHECK(resource.isRegistered(), "the input is registered as a resource");
    decodeEveryStream(resource.path());
    readVideo(resource.path());
    readAudio(resource.path());
}

} // namespace Veloran::Fuzz
