#include "FFDemuxer.h"

#include "FFmpegJoint.h"
#include "VeloranBaseEntry.h"
#include "VeloranDec/FFVobDemuxer.h"
#include "VeloranDec/QrcIOCallbacks.h"
#include "VeloranDec/ReadDeadline.h"
#include "VeloranDec/StreamInfoUtils.h"

#include <QFile>
#include <QFileInfo>

#include <algorithm>

extern "C" {
#include <libavutil/error.h>
}

namespace Veloran {

namespace {

// Limits for one blocking call: a stalled or endless source gives up after them.
// Opening covers probing, which reads and decodes the first packets of each stream.
constexpr long long kOpenDeadlineMs = 15000;
constexpr long long kReadDeadlineMs = 10000;

QString errorText(int code)
{
    char text[256] = {0};
    av_strerror(code, text, sizeof(text));
    return QString::fromUtf8(text);
}

// The description of the stream with this container index; null when none has it.
template <class Info>
QSharedPointer<Info> streamWithIndex(const QVector<QSharedPointer<Info>> &streams, int index)
{
    const auto found = std::find_if(streams.begin(), streams.end(),
                                    [index](const QSharedPointer<Info> &stream) { return stream->index == index; });
    return found != streams.end() ? *found : nullptr;
}

} // namespace

FFDemuxer::FFDemuxer(QObject *parent)
    : BasicObject(parent)
    , mDeadline(std::make_unique<ReadDeadline>())
{
}

FFDemuxer::~FFDemuxer()
{
    // The format context goes first: closing it may still call back into the file.
    releaseFormatCtx();
}

bool FFDemuxer::open(const QString &path)
{
    assertOwnThread();
    if (path.isEmpty())
        return false;

    const ReadDeadline::Scope deadline(*mDeadline, kOpenDeadlineMs);
    const AVIOInterruptCB interrupt = mDeadline->interruptCallback();
    int result = 0;
    if (path.at(0) != QLatin1Char(':')) {
        releaseFormatCtx();
        result = openInputContext(mFormatCtx, path.toUtf8().constData(), nullptr, &interrupt);
    } else {
        // The open context may still read from the old resource file: drop it first.
        releaseFormatCtx();
        mQrcFile = std::make_unique<QFile>(path);
        if (!mQrcFile->open(QIODevice::ReadOnly)) {
            VR_LOG << "mQrcFile->open failed.";
            return false;
        }
        result = openResource();
    }

    if (result != 0) {
        VR_LOG << "---demux--- avformat_open_input: " << result << ": " << errorText(result);
        VR_LOG << "---demux--- Could not open the file . fileSize :" << QFileInfo(path).size();
        mFormatCtx.reset();
        return false;
    }

    if (avformat_find_stream_info(mFormatCtx.data(), nullptr) < 0) {
        VR_LOG << "---demux--- avformat_find_stream_info failed";
        mFormatCtx.reset();
        return false;
    }

    mPath = path;
    return true;
}

int FFDemuxer::openResource()
{
    // No buffer of our own: reads bigger than the (empty) buffer go straight to the
    // callback, and after probing FFmpeg keeps its probe buffer as the I/O buffer.
    // The format context's deleter frees the I/O context with whatever buffer it has.
    AVIOContext *io = avio_alloc_context(nullptr, 0, 0, mQrcFile.get(), qrc_read_packet, nullptr, qrc_seek);
    if (!io)
        return AVERROR(ENOMEM);
    const AVIOInterruptCB interrupt = mDeadline->interruptCallback();
    return openInputContext(mFormatCtx, nullptr, io, &interrupt);
}

void FFDemuxer::close()
{
    releaseFormatCtx();
}

void FFDemuxer::releaseFormatCtx()
{
    if (mFormatCtx)
        mFormatCtx->interrupt_callback = AVIOInterruptCB {nullptr, nullptr};
    mFormatCtx.reset();
}

long long FFDemuxer::containerTimeMs(long long ms) const
{
    // A request for the very start is not shifted: 0 means "before everything".
    if (ms > 0 && mFormatCtx && mFormatCtx->start_time > 0)
        return ms + mFormatCtx->start_time / 1000;
    return ms;
}

void FFDemuxer::seek(qint64 ms)
{
    if (!mFormatCtx)
        return;
    const long long t = containerTimeMs(ms);
    const ReadDeadline::Scope deadline(*mDeadline, kReadDeadlineMs);
    avformat_flush(mFormatCtx.data());
    const int result = av_seek_frame(mFormatCtx.data(), -1, t * 1000, AVSEEK_FLAG_BACKWARD);
    if (result < 0)
        VR_LOG << "---player--- av_seek_frame: " << result << ": " << errorText(result);
}

void FFDemuxer::seekByStream(qint64 ms, int streamIndex)
{
    if (streamIndex < 0 || !mFormatCtx || streamIndex >= static_cast<int>(mFormatCtx->nb_streams))
        return;
    const long long t = containerTimeMs(ms);
    const ReadDeadline::Scope deadline(*mDeadline, kReadDeadlineMs);
    avformat_flush(mFormatCtx.data());
    const long long target = av_rescale_q(t, AVRational {1, 1000}, mFormatCtx->streams[streamIndex]->time_base);
    const int result = av_seek_frame(mFormatCtx.data(), streamIndex, target, AVSEEK_FLAG_BACKWARD);
    if (result < 0) {
        // Last resort over all streams. The target stays in the stream's units
        // although stream -1 reads microseconds; existing callers rely on exactly
        // this position, so it is kept as is.
        av_seek_frame(mFormatCtx.data(), -1, target, AVSEEK_FLAG_BACKWARD);
        VR_LOG << "---player--- seekByStream streamIndex: " << streamIndex << ",res : " << result << ": "
               << errorText(result);
    }
}

long long FFDemuxer::indexedKeyFrameAtOrBefore(int streamIndex, long long ts) const
{
    if (!mFormatCtx || streamIndex < 0 || streamIndex >= static_cast<int>(mFormatCtx->nb_streams))
        return AV_NOPTS_VALUE;
    const AVIndexEntry *entry =
        avformat_index_get_entry_from_timestamp(mFormatCtx->streams[streamIndex], ts, AVSEEK_FLAG_BACKWARD);
    return entry ? entry->timestamp : AV_NOPTS_VALUE;
}

void FFDemuxer::seekByFilePos(qint64 bytePos)
{
    if (!mFormatCtx)
        return;
    const ReadDeadline::Scope deadline(*mDeadline, kReadDeadlineMs);
    avformat_flush(mFormatCtx.data());
    const int result = av_seek_frame(mFormatCtx.data(), -1, bytePos, AVSEEK_FLAG_BYTE);
    if (result < 0)
        VR_LOG << "---player--- seekByFilePos av_seek_frame: " << result << ": " << errorText(result);
}

AVPacketPtr FFDemuxer::readPacket()
{
    if (!mFormatCtx)
        return {};
    AVPacketPtr packet = makeAVPacketPtr(av_packet_alloc());
    if (!packet)
        return {};
    const ReadDeadline::Scope deadline(*mDeadline, kReadDeadlineMs);
    // An empty packet ends reading like end of file does.
    if (av_read_frame(mFormatCtx.data(), packet.data()) != 0 || packet->size < 1)
        return {};
    return packet;
}

AVPacketPtr FFDemuxer::readPacket(int streamIndex)
{
    // One limit for the whole search: an endless source of other streams' packets
    // must not keep it going.
    const ReadDeadline::Scope deadline(*mDeadline, kReadDeadlineMs);
    for (;;) {
        AVPacketPtr packet = readPacket();
        if (!packet || packet->stream_index == streamIndex)
            return packet;
    }
}

qint64 FFDemuxer::durationMs()
{
    if (!mFormatCtx || mFormatCtx->duration < 1)
        return 0;
    return mFormatCtx->duration / 1000;
}

AVFormatContextPtr FFDemuxer::formatCtx() const
{
    return mFormatCtx;
}

QString FFDemuxer::path() const
{
    return mPath;
}

QSharedPointer<ContainerInfo> FFDemuxer::containerInfo() const
{
    if (!mFormatCtx)
        return {};
    return makeContainerInfo(mFormatCtx.data(), mPath);
}

QSharedPointer<CVideoStreamInfo> FFDemuxer::videoStreamInfo(int index) const
{
    const QSharedPointer<ContainerInfo> info = containerInfo();
    return info ? streamWithIndex(info->videoStreams, index) : nullptr;
}

QSharedPointer<CAudioStreamInfo> FFDemuxer::audioStreamInfo(int index) const
{
    const QSharedPointer<ContainerInfo> info = containerInfo();
    return info ? streamWithIndex(info->audioStreams, index) : nullptr;
}

QSharedPointer<FFDemuxer> FFDemuxer::createDemuxer(const QString &path, bool forceVob)
{
    bool vob = forceVob;
    if (!vob && QFileInfo(path).suffix().toLower() == QLatin1String("vob"))
        vob = VeloranBaseEntry()->properties()->value(QStringLiteral("kVob_DeMux_Enabled")).toBool();
    // QObject-aware construction, so weak pointers to the demuxer work.
    if (vob)
        return QSharedPointer<FFDemuxer>(new FFVobDemuxer);
    return QSharedPointer<FFDemuxer>(new FFDemuxer);
}

} // namespace Veloran
