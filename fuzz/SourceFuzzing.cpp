#include "FFmpegJoint.h"
#include "FuzzCheck.h"
#include "FuzzTargets.h"
#include "FuzzTimes.h"
#include "InMemoryResource.h"

#include "VeloranBaseEntry.h"
#include "VeloranDec/Adapter/FFAudioAdapter.h"
#include "VeloranDec/Adapter/FFVideoAdapter.h"
#include "VeloranDec/AudioSource.h"
#include "VeloranDec/FFDemuxer.h"
#include "VeloranDec/IAudioFrame.h"
#include "VeloranDec/IVideoFrame.h"
#include "VeloranDec/VideoSource.h"

#include <QByteArray>
#include <QCryptographicHash>

#include <algorithm>
#include <cstring>

namespace Veloran::Fuzz {

namespace {

constexpr int kMaxPackets = 300;
constexpr long long kBackwardCount = 3;

// The input's bytes, taken from the front; zeros once they run out.
class ByteReader
{
public:
    ByteReader(const uint8_t *data, size_t size)
        : mData(data)
        , mSize(size)
    {
    }
    uint8_t byte() { return mPos < mSize ? mData[mPos++] : 0; }
    int word() { return byte() | byte() << 8; }
    quint32 dword() { return quint32(word()) | quint32(word()) << 16; }
    const uint8_t *rest() const { return mData + mPos; }
    size_t restSize() const { return mSize - mPos; }

private:
    const uint8_t *mData;
    size_t mSize;
    size_t mPos = 0;
};

// Fills the frame's buffers from the input, repeating it; zeros without input.
void fill(AVFrame *frame, const ByteReader &bytes)
{
    for (int i = 0; i < AV_NUM_DATA_POINTERS && frame->buf[i]; ++i) {
        uint8_t *out = frame->buf[i]->data;
        const size_t size = frame->buf[i]->size;
        if (bytes.restSize() == 0) {
            std::memset(out, 0, size);
            continue;
        }
        for (size_t done = 0; done < size; done += bytes.restSize())
            std::memcpy(out + done, bytes.rest(), std::min(bytes.restSize(), size - done));
    }
}

void readVideoSource(const QString &path, int width)
{
    VideoSource source;
    if (!source.openVideo(path, {AV_PIX_FMT_RGB24, AV_PIX_FMT_RGBA}, width))
        return;
    source.getRotation();
    source.getSampleAspectRatio();
    source.isVideoAvailable();
    source.coderName();
    const auto check = [](const QSharedPointer<IVideoFrame> &frame) {
        VR_FUZZ_CHECK(!frame || (frame->frameSize().width() <= FFVideoAdapter::kMostOutputSide
                                 && frame->frameSize().height() <= FFVideoAdapter::kMostOutputSide),
                      "pictures handed out stay within the output limit");
    };
    check(source.readNextAdaptFrame());
    for (long long t : probeTimes(source.durationMs())) {
        check(source.seekAndReadNextAdaptFrame(t, true));
        check(source.seekAndReadNextAdaptFrame(t, false));
    }
    const QVector<QSharedPointer<IVideoFrame>> before =
        source.revertSeekAndReadNextAdaptFrame(source.durationMs() / 2, kBackwardCount);
    VR_FUZZ_CHECK(before.size() <= kBackwardCount, "backward reads hold what was asked for");
    for (const QSharedPointer<IVideoFrame> &frame : before)
        check(frame);
}

void readAudioSource(const QString &path)
{
    AudioSource source;
    if (!source.open(path, AV_SAMPLE_FMT_U8, 1, -1, 48000))
        return;
    const auto check = [](const QSharedPointer<IAudioFrame> &frame) {
        VR_FUZZ_CHECK(!frame || frame->samples() <= FFAudioAdapter::kMostOutSamples,
                      "converted frames stay within the resampler limit");
    };
    for (int i = 0; i < 4; ++i)
        check(source.readNextAdaptFrame());
    for (long long t : probeTimes(source.durationMs())) {
        check(source.seekAndReadNextAdaptFrame(t, true));
        check(source.readNextAdaptFrame());
    }
    const QVector<QSharedPointer<IAudioFrame>> before =
        source.revertSeekAndReadNextAdaptFrame(source.durationMs() / 2, kBackwardCount);
    VR_FUZZ_CHECK(before.size() <= kBackwardCount, "backward reads hold what was asked for");
}

// Sources over the input as a media file.
void fuzzSourceMedia(ByteReader bytes)
{
    // Widths a caller asks for, and one just over the output limit (refused). Pictures
    // near the limit are a gigabyte each and only slow the run: the video-adapter
    // target covers the scaler at those sizes.
    static constexpr int kWidths[] = {0, 97, 320, FFVideoAdapter::kMostOutputSide + 1};
    const int width = kWidths[bytes.byte() % 4];
    const QByteArray content(reinterpret_cast<const char *>(bytes.rest()), static_cast<int>(bytes.restSize()));
    const InMemoryResource resource(content);
    VR_FUZZ_CHECK(resource.isRegistered(), "the input is registered as a resource");
    readVideoSource(resource.path(), width);
    readAudioSource(resource.path());
}

// A picture of any size and format converted to any other.
void fuzzVideoAdapter(ByteReader bytes)
{
    const int srcW = bytes.word() % 600;
    const int srcH = bytes.word() % 600;
    const auto srcFormat = AVPixelFormat(bytes.byte() % AV_PIX_FMT_NB);
    // Now and then beyond the output limit; otherwise small, to keep runs fast.
    const bool huge = bytes.byte() & 1;
    const int dstW = bytes.word() % 1024 + (huge ? FFVideoAdapter::kMostOutputSide : 0);
    const int dstH = bytes.word() % 1024;
    const auto dstFormat = AVPixelFormat(bytes.byte() % AV_PIX_FMT_NB);
    FFVideoAdapter adapter;
    const bool setUp = adapter.setupContext(srcW, srcH, srcFormat, dstW, dstH, dstFormat);
    VR_FUZZ_CHECK(!setUp || (dstW <= FFVideoAdapter::kMostOutputSide && dstH <= FFVideoAdapter::kMostOutputSide),
                  "no scaler to pictures over the output limit");
    adapter.setOutFormat(dstFormat);
    AVFramePtr frame = makeAVFramePtr(av_frame_alloc());
    frame->width = srcW;
    frame->height = srcH;
    frame->format = srcFormat;
    if (srcW < 1 || srcH < 1 || av_frame_get_buffer(frame.data(), 0) < 0)
        return;
    fill(frame.data(), bytes);
    adapter.adapt(frame);
}

// Audio of any rate, layout and format resampled to what the waveforms use.
void fuzzAudioAdapter(ByteReader bytes)
{
    const int rate = int(bytes.dword() % 1000000);
    const int channels = 1 + bytes.byte() % 8;
    const auto format = AVSampleFormat(bytes.byte() % AV_SAMPLE_FMT_NB);
    const int samples = bytes.word() % 8192;
    static constexpr int kOutRates[] = {8000, 44100, 48000, 96000};
    const int outRate = kOutRates[bytes.byte() % 4];
    AVFramePtr frame = makeAVFramePtr(av_frame_alloc());
    frame->sample_rate = rate;
    frame->format = format;
    frame->nb_samples = samples;
    av_channel_layout_default(&frame->ch_layout, channels);
    if (samples < 1 || av_frame_get_buffer(frame.data(), 0) < 0)
        return;
    fill(frame.data(), bytes);
    FFAudioAdapter adapter;
    AVChannelLayout stereo = AV_CHANNEL_LAYOUT_STEREO;
    adapter.setupContext(48000, 2, AV_SAMPLE_FMT_FLTP, stereo, outRate, 1, AV_SAMPLE_FMT_U8);
    for (int i = 0; i < 2; ++i) {
        const AVFramePtr out = adapter.adapt(frame);
        VR_FUZZ_CHECK(!out || out->nb_samples <= FFAudioAdapter::kMostOutSamples,
                      "converted frames stay within the resampler limit");
    }
}

// The input as a DVD VOB file: the chapter-aware demuxer directly and under the
// sources. Chapters are indexed per path and file stamp: each input gets its own.
void fuzzVob(ByteReader bytes)
{
    const QByteArray content(reinterpret_cast<const char *>(bytes.rest()), static_cast<int>(bytes.restSize()));
    const QString root = QStringLiteral("/vr-vob-")
        + QString::fromLatin1(QCryptographicHash::hash(content, QCryptographicHash::Md5).toHex());
    const InMemoryResource resource(content, root, QStringLiteral("input.vob"));
    VR_FUZZ_CHECK(resource.isRegistered(), "the input is registered as a resource");
    const QSharedPointer<FFDemuxer> demuxer = FFDemuxer::createDemuxer(resource.path(), true);
    if (demuxer->open(resource.path())) {
        for (int n = 0; n < kMaxPackets && demuxer->readPacket(); ++n) {
        }
        for (long long t : probeTimes(demuxer->durationMs())) {
            demuxer->seek(t);
            demuxer->readPacket();
        }
    }
    PropertyMap *properties = VeloranBaseEntry()->properties();
    properties->setValue(QStringLiteral("kVob_DeMux_Enabled"), true);
    readVideoSource(resource.path(), 64);
    readAudioSource(resource.path());
    properties->remove(QStringLiteral("kVob_DeMux_Enabled"));
}

} // namespace

void fuzzSources(const uint8_t *data, size_t size)
{
    // Resource images carry 32-bit sizes; libFuzzer inputs stay far below.
    if (size > (1u << 30))
        return;
    ByteReader bytes(data, size);
    switch (bytes.byte() % 4) {
    case 0:
        fuzzSourceMedia(bytes);
        break;
    case 1:
        fuzzVideoAdapter(bytes);
        break;
    case 2:
        fuzzAudioAdapter(bytes);
        break;
    default:
        fuzzVob(bytes);
        break;
    }
}

} // namespace Veloran::Fuzz
