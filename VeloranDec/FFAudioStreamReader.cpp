#include "VeloranDec/FFAudioStreamReader.h"

#include "FFmpegJoint.h"
#include "VeloranDec/CAudioStreamInfo.h"
#include "VeloranDec/FFDecoder.h"
#include "VeloranDec/FFDemuxer.h"

#include <QDebug>

namespace Veloran {

namespace {
const AVRational kMilliseconds {1, 1000};
}

FFAudioStreamReader::FFAudioStreamReader(QObject *parent)
    : FFStreamReader(parent)
{
}

FFAudioStreamReader::~FFAudioStreamReader()
{
    qDebug() << "~FFAudioStreamReader";
}

void FFAudioStreamReader::ensureStreamInfo(const QString &)
{
    mStreamInfo = mDemuxer->audioStreamInfo(streamIndex());
    const AVFormatContextPtr ctx = mDemuxer->formatCtx();
    // Containers without a clock of their own (WAV, raw streams) start at 0.
    mStartTimeMs = ctx->start_time != AV_NOPTS_VALUE ? ctx->start_time / 1000 : 0;
    // The first frame's time relative to the container start tells where the
    // audio begins; then reading starts again from the beginning.
    const AVFramePtr first = readNextFrame();
    // Just timed: the prediction ends where the first frame does.
    mFirstSample = first ? mNextPts - first->nb_samples : 0;
    seekByStream(0);
    if (first)
        mStartTimeMs += first->pts;
}

void FFAudioStreamReader::forgetStreamInfo()
{
    mStreamInfo.reset();
    mStartTimeMs = -1;
    mFirstSample = 0;
    mNextPts = 0;
}

AVFramePtr FFAudioStreamReader::frameAtTarget(const AVFramePtr &frame, long long ms)
{
    // Just timed, the frame ends where the prediction stands now.
    const long long end = mNextPts;
    const long long target = mFirstSample + av_rescale_q(ms, kMilliseconds, sampleTimeBase());
    if (frame->nb_samples < 1 || target >= end)
        return {};
    const long long skip = target - (end - frame->nb_samples);
    if (skip <= 0)
        return frame;
    AVFramePtr cut = makeAVFramePtr(av_frame_alloc());
    if (!cut)
        return frame;
    cut->format = frame->format;
    cut->sample_rate = frame->sample_rate;
    cut->nb_samples = frame->nb_samples - int(skip);
    if (av_channel_layout_copy(&cut->ch_layout, &frame->ch_layout) < 0 || av_frame_get_buffer(cut.data(), 0) < 0
        || av_frame_copy_props(cut.data(), frame.data()) < 0)
        return frame;
    av_samples_copy(cut->extended_data, frame->extended_data, 0, int(skip), cut->nb_samples,
                    frame->ch_layout.nb_channels, AVSampleFormat(frame->format));
    cut->pts = ms;
    cut->best_effort_timestamp = ms;
    return cut;
}

AVRational FFAudioStreamReader::sampleTimeBase()
{
    const AVCodecParameters *parameters = getCodecParam();
    const int rate = parameters && parameters->sample_rate > 0 ? parameters->sample_rate : 1000;
    return AVRational {1, rate};
}

void FFAudioStreamReader::restartPrediction(long long ms)
{
    mNextPts = av_rescale_q(ms, kMilliseconds, sampleTimeBase());
}

void FFAudioStreamReader::resetPtsToMs(const AVFramePtr &frame)
{
    AVStream *stream = getStream();
    if (!stream || !frame)
        return;
    long long ms = 0;
    if (frame->pts != AV_NOPTS_VALUE) {
        mNextPts = av_rescale_q(frame->pts, stream->time_base, sampleTimeBase()) + frame->nb_samples;
        ms = av_rescale_q(frame->pts, stream->time_base, kMilliseconds);
        if (mStartTimeMs >= 1)
            ms -= mStartTimeMs;
    } else {
        ms = av_rescale_q(mNextPts, sampleTimeBase(), kMilliseconds);
        mNextPts += frame->nb_samples;
        if (mStartTimeMs > 0)
            ms -= mStartTimeMs;
    }
    frame->pts = ms;
    frame->best_effort_timestamp = ms;
}

long long FFAudioStreamReader::frameIntervalsMs()
{
    if (streamIndex() < 0 || !mDemuxer)
        return 0;
    const AVCodecParameters *parameters = getCodecParam();
    if (!parameters || parameters->frame_size < 1 || parameters->sample_rate < 1)
        return 40;
    return static_cast<long long>(parameters->frame_size * 1000.0 / parameters->sample_rate);
}

QVector<AVFramePtr> FFAudioStreamReader::revertSeekAndReadFrame(long long ms, bool, long long count)
{
    return readFramesBefore(ms, count);
}

QSharedPointer<CAudioStreamInfo> FFAudioStreamReader::audioStreamInfo() const
{
    return mStreamInfo;
}

} // namespace Veloran
