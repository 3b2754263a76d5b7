#include "StreamInfoUtils.h"

#include "Common/Helpers.h"
#include "FFmpegJoint.h"
#include "VeloranDec/FFDemuxer.h"

extern "C" {
#include <libavutil/display.h>
#include <libavutil/pixdesc.h>
}

#include <cmath>
#include <limits>

namespace Veloran {

namespace {

long long streamDurationMs(const AVStream *stream)
{
    const double factor = stream->time_base.den == 0
        ? 0.0
        : static_cast<double>(stream->time_base.num) / stream->time_base.den * 1000.0;
    const double ms = stream->duration * factor;
    // A hostile duration must not make the conversion undefined.
    if (!(std::fabs(ms) < 9.2e18))
        return ms < 0 ? std::numeric_limits<long long>::min() : std::numeric_limits<long long>::max();
    return static_cast<long long>(ms);
}

bool isUsableRate(AVRational rate, int bound)
{
    return rate.num != 0 && rate.den != 0 && rate.num / rate.den < bound;
}

// The average rate is believed up to 120 fps; above that (or when unset) the
// container's base rate is tried with a slightly tighter bound.
AVRational chooseFrameRate(const AVStream *stream)
{
    if (isUsableRate(stream->avg_frame_rate, 121))
        return stream->avg_frame_rate;
    if (isUsableRate(stream->r_frame_rate, 120))
        return stream->r_frame_rate;
    return stream->avg_frame_rate;
}

// Clockwise degrees from the display matrix, normalised to [0, 360).
int streamRotation(const AVStream *stream)
{
    const uint8_t *matrix = av_stream_get_side_data(stream, AV_PKT_DATA_DISPLAYMATRIX, nullptr);
    if (!matrix)
        return 0;
    const double angle = av_display_rotation_get(reinterpret_cast<const int32_t *>(matrix));
    const double rotation = -angle - 360.0 * std::floor(0.0025 - angle / 360.0);
    // Also rejects NaN from a degenerate matrix.
    if (rotation > 0.0)
        return static_cast<int>(rotation);
    return 0;
}

// The fields every stream record shares; the media type is left to the generic record,
// the typed records keep their "unknown" default.
void fillStreamFields(CStreamInfo &info, const AVStream *stream, int index)
{
    info.index = index;
    info.codecId = stream->codecpar->codec_id;
    info.timeBase = stream->time_base;
}

} // namespace

QSharedPointer<CStreamInfo> makeStreamInfo(AVStream *stream, int index)
{
    auto info = QSharedPointer<CStreamInfo>::create();
    fillStreamFields(*info, stream, index);
    info->mediaType = stream->codecpar->codec_type;
    return info;
}

QSharedPointer<CVideoStreamInfo> makeVideoStreamInfo(AVStream *stream, int index)
{
    const AVCodecParameters *par = stream->codecpar;
    auto info = QSharedPointer<CVideoStreamInfo>::create();
    fillStreamFields(*info, stream, index);
    info->codecTag = par->codec_tag;
    info->pixFmt = par->format;
    info->width = par->width;
    info->height = par->height;
    info->frameRate = chooseFrameRate(stream);
    info->durationMs = streamDurationMs(stream);
    info->bitRate = par->bit_rate;
    const AVRational streamSar = stream->sample_aspect_ratio;
    if (streamSar.num != 0 && streamSar.den != 0 && streamSar.num != streamSar.den)
        info->sar = streamSar;
    else
        info->sar = par->sample_aspect_ratio;
    info->rotation = streamRotation(stream);
    info->isCover = (stream->disposition & AV_DISPOSITION_ATTACHED_PIC) != 0;
    return info;
}

QSharedPointer<CAudioStreamInfo> makeAudioStreamInfo(AVStream *stream, int index)
{
    const AVCodecParameters *par = stream->codecpar;
    auto info = QSharedPointer<CAudioStreamInfo>::create();
    fillStreamFields(*info, stream, index);
    info->durationMs = streamDurationMs(stream);
    info->sampleFmt = par->format;
QT_WARNING_PUSH
QT_WARNING_DISABLE_DEPRECATED
    info->channels = par->channels;
    info->channelLayout = par->channel_layout;
QT_WARNING_POP
    info->sampleRate = par->sample_rate;
    info->bitRate = par->bit_rate;
    info->codecTag = par->codec_tag;
    return info;
}

QSharedPointer<ContainerInfo> makeContainerInfo(AVFormatContext *context, const QString &path)
{
    if (!context)
        return {};
    auto info = QSharedPointer<ContainerInfo>::create();
    const int64_t duration = context->duration;
    info->durationMs = duration > std::numeric_limits<int64_t>::max() - 5000 ? duration / 1000
                                                                             : (duration + 5000) / 1000;
    info->startTime = static_cast<long long>(static_cast<double>(context->start_time) / 1e6);
    info->bitRate = context->bit_rate;
    if (context->iformat && context->iformat->long_name)
        info->formatName = QString::fromUtf8(context->iformat->long_name);

    for (unsigned int i = 0; i < context->nb_streams; ++i) {
        AVStream *stream = context->streams[i];
        const int index = static_cast<int>(i);
        switch (stream->codecpar->codec_type) {
        case AVMEDIA_TYPE_VIDEO: {
            QSharedPointer<CVideoStreamInfo> video = makeVideoStreamInfo(stream, index);
            // Only the first video stream can be a cover the demuxer did not mark.
            if (info->videoStreams.isEmpty() && !video->isCover)
                video->isCover = isCoverStream(path, index);
            info->videoStreams.append(video);
            break;
        }
        case AVMEDIA_TYPE_AUDIO:
            info->audioStreams.append(makeAudioStreamInfo(stream, index));
            break;
        case AVMEDIA_TYPE_SUBTITLE: {
            auto subtitle = QSharedPointer<CSubtitleStreamInfo>::create();
            subtitle->index = index;
            subtitle->codecId = stream->codecpar->codec_id;
            info->subtitleStreams.append(subtitle);
            break;
        }
        default:
            break;
        }
        info->streams.append(makeStreamInfo(stream, index));
    }
    return info;
}

QSize calcDisplaySize(int width, int height, int rotation, AVRational sar)
{
    int w = width;
    int h = height;
    if (sar.num >= 1 && sar.den >= 1 && sar.num != sar.den)
        w = static_cast<int>(std::round(static_cast<double>(static_cast<int32_t>(static_cast<int64_t>(sar.num) * width))
                                        / sar.den));
    w = toEvenValue(w);
    h = toEvenValue(h);
    if (rotation == 90 || rotation == 270)
        return QSize(h, w);
    return QSize(w, h);
}

bool isHasAlpha(AVPixelFormat format)
{
    const AVPixFmtDescriptor *descriptor = av_pix_fmt_desc_get(format);
    if (!descriptor)
        return false;
    return descriptor->nb_components % 2 == 0;
}

bool isCoverStream(const QString &path, int streamIndex)
{
    FFDemuxer demuxer;
    if (!demuxer.open(path))
        return false;
    const AVFormatContextPtr context = demuxer.formatCtx();
    const QString name = QString::fromUtf8(context->iformat->name);
    if (!name.contains(QLatin1String("asf"), Qt::CaseInsensitive)
        && !name.contains(QLatin1String("wmv"), Qt::CaseInsensitive)
        && !name.contains(QLatin1String("wma"), Qt::CaseInsensitive))
        return false;

    AVPacketPtr packet = makeAVPacketPtr(av_packet_alloc());
    if (!packet)
        return false;
    int count = 0;
    for (;;) {
        const int result = av_read_frame(context.data(), packet.data());
        if (result == AVERROR_EOF)
            return true;
        if (result < 0)
            return false;
        if (packet->stream_index == streamIndex)
            ++count;
        av_packet_unref(packet.data());
        if (count > 3)
            return false;
    }
}

} // namespace Veloran
