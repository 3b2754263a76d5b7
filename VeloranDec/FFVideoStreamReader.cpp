#include "VeloranDec/FFVideoStreamReader.h"

#include "FFmpegJoint.h"
#include "VeloranDec/CVideoStreamInfo.h"
#include "VeloranDec/FFAudioStreamReader.h"
#include "VeloranDec/FFDecoder.h"
#include "VeloranDec/FFDemuxer.h"

#include <algorithm>

namespace Veloran {

namespace {
// Without an index, how far ahead a target may lie for reading on: seeks in such
// formats (MPEG-TS, program streams) often land late and step back, and their key
// frames usually come every half second or second.
constexpr long long kReadOnWithoutIndexMs = 1000;
} // namespace

FFVideoStreamReader::FFVideoStreamReader(QObject *parent)
    : FFStreamReader(parent)
{
}

FFVideoStreamReader::~FFVideoStreamReader() = default;

bool FFVideoStreamReader::openStream_D3D(const QString &, const QString &)
{
    return false;
}

void FFVideoStreamReader::ensureStreamInfo(const QString &)
{
    mStreamInfo.reset();
    mStreamInfo = mDemuxer->videoStreamInfo(streamIndex());
    // Video times count from the file's first audio sample. An audio reader on this
    // reader's demuxer finds it without opening the file again: it reads from the
    // start, as a fresh demuxer would. It leaves the demuxer where its own stream
    // starts, so reading goes back to the start of the file.
    FFAudioStreamReader audio;
    if (audio.openStream(mDemuxer, AVMEDIA_TYPE_AUDIO, -1))
        seek(0);
    mStartTimeMs = audio.startTimeMs();
}

void FFVideoStreamReader::forgetStreamInfo()
{
    mStreamInfo.reset();
    mStartTimeMs = 0;
    mNextPtsMs = 0;
}

void FFVideoStreamReader::restartPrediction(long long ms)
{
    mNextPtsMs = ms;
}

void FFVideoStreamReader::resetPtsToMs(const AVFramePtr &frame)
{
    AVStream *stream = getStream();
    if (!stream || !frame)
        return;
    long long ms = mNextPtsMs;
    if (frame->best_effort_timestamp != AV_NOPTS_VALUE)
        ms = av_rescale_q(frame->best_effort_timestamp, stream->time_base, AVRational {1, 1000});
    frame->pts = ms;
    // The prediction stays on the file's own time line.
    mNextPtsMs = ms + frameIntervalsMs();
    if (mStartTimeMs > 0) {
        ms = std::max(0LL, ms - mStartTimeMs);
        frame->pts = ms;
    }
    frame->best_effort_timestamp = ms;
}

long long FFVideoStreamReader::frameIntervalsMs()
{
    if (streamIndex() < 0 || !mDemuxer)
        return 0;
    if (!mStreamInfo || mStreamInfo->frameRate.num < 1 || mStreamInfo->frameRate.den < 1)
        return 40;
    return static_cast<long long>(mStreamInfo->frameRate.den * 1000.0 / mStreamInfo->frameRate.num);
}

bool FFVideoStreamReader::readingOnIsCheaper(long long fromMs, long long toMs)
{
    const AVFormatContextPtr ctx = mDemuxer ? mDemuxer->formatCtx() : AVFormatContextPtr();
    if (!getStream() || !ctx || (ctx->iformat->flags & AVFMT_NOTIMESTAMPS))
        return false;
    const long long keyFrame = mDemuxer->indexedKeyFrameAtOrBefore(streamIndex(), toStreamTime(toMs));
    if (keyFrame == AV_NOPTS_VALUE)
        return toMs - fromMs <= kReadOnWithoutIndexMs;
    return keyFrame <= toStreamTime(fromMs);
}

long long FFVideoStreamReader::toStreamTime(long long ms, AVRounding rounding)
{
    // The inverse of resetPtsToMs(): back to the file's own time line.
    if (mStartTimeMs > 0)
        ms += mStartTimeMs;
    return av_rescale_q_rnd(ms, AVRational {1, 1000}, getStream()->time_base, rounding);
}

long long FFVideoStreamReader::streamTimeAtOrBefore(long long ms)
{
    const AVFormatContextPtr ctx = mDemuxer ? mDemuxer->formatCtx() : AVFormatContextPtr();
    if (!getStream() || !ctx || (ctx->iformat->flags & AVFMT_NOTIMESTAMPS))
        return AV_NOPTS_VALUE;
    return toStreamTime(ms, AV_ROUND_DOWN);
}

QVector<AVFramePtr> FFVideoStreamReader::revertSeekAndReadFrame(long long ms, long long count)
{
    return readFramesBefore(ms, count);
}

QSharedPointer<CVideoStreamInfo> FFVideoStreamReader::videoStreamInfo() const
{
    return mStreamInfo;
}

bool FFVideoStreamReader::isAttachedPic()
{
    AVStream *stream = getStream();
    return stream && (stream->disposition & AV_DISPOSITION_ATTACHED_PIC);
}

QString FFVideoStreamReader::coderName() const
{
    if (!mDecoder)
        return {};
    const AVCodecContextPtr ctx = mDecoder->codecContext();
    if (!ctx || !ctx->codec || !ctx->codec->name)
        return {};
    return QString::fromUtf8(ctx->codec->name);
}

AVBufferRef *FFVideoStreamReader::hwFramesContext() const
{
    return mDecoder ? mDecoder->hwFramesContext() : nullptr;
}

void *FFVideoStreamReader::d3dDevice() const
{
    return mDecoder ? mDecoder->hwDevice() : nullptr;
}

} // namespace Veloran
