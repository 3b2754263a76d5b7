#include "AudioFrame.h"

#include "FFmpegJoint.h"

#include <climits>
#include <cstring>

extern "C" {
#include <libavutil/samplefmt.h>
}

namespace Veloran {

// Audio readers already keep milliseconds in the frame's pts: the time starts as it.
AudioFrame::AudioFrame(AVFramePtr frame)
    : FrameWrapper(frame, frame ? frame->pts : -1, 0)
{
}

AudioFrame::AudioFrame(long long sampleCount)
    : FrameWrapper(makeAVFramePtr(av_frame_alloc()), -1, 0)
{
    if (!mFrame)
        return;
    if (sampleCount < 0 || sampleCount > INT_MAX) {
        mFrame.reset();
        return;
    }
    mFrame->pts = 0;
    mFrame->nb_samples = int(sampleCount);
    // The legacy layout fields are set; av_frame_get_buffer derives ch_layout from them.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
    mFrame->channel_layout = AV_CH_LAYOUT_STEREO;
    mFrame->channels = 2;
#pragma GCC diagnostic pop
    mFrame->sample_rate = 48000;
    mFrame->format = AV_SAMPLE_FMT_S16;
    if (av_frame_get_buffer(mFrame.data(), 0) < 0) {
        mFrame.reset();
        return;
    }
    // Capacity for sampleCount samples, none of them used yet: producers append.
    mFrame->nb_samples = 0;
    std::memset(mFrame->buf[0]->data, 0, mFrame->buf[0]->size);
    mPts = mFrame->pts;
}

AudioFrame::~AudioFrame() = default;

bool AudioFrame::isEmpty() const
{
    return !mFrame;
}

int AudioFrame::channelCount() const
{
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
    return mFrame ? mFrame->channels : 0;
#pragma GCC diagnostic pop
}

int AudioFrame::sampleRate() const
{
    return mFrame ? mFrame->sample_rate : 0;
}

int AudioFrame::samples() const
{
    return mFrame ? mFrame->nb_samples : 0;
}

int AudioFrame::sampleSize() const
{
    return mFrame ? av_get_bytes_per_sample(AVSampleFormat(mFrame->format)) : 0;
}

void AudioFrame::setSamples(int samples)
{
    if (mFrame)
        mFrame->nb_samples = samples;
}

AVFramePtr AudioFrame::toAVFrame()
{
    if (mFrame)
        mFrame->pts = mPts;
    return mFrame;
}

QSharedPointer<IAudioFrame> makeAudioFrame(AVFramePtr frame)
{
    return QSharedPointer<AudioFrame>::create(std::move(frame));
}

} // namespace Veloran
