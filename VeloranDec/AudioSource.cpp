#include "VeloranDec/AudioSource.h"

#include "FFmpegJoint.h"
#include "VeloranDec/Adapter/FFAudioAdapter.h"
#include "VeloranDec/AudioFrame.h"
#include "VeloranDec/FFAudioStreamReader.h"

#include <QThread>

namespace Veloran {

AudioSource::AudioSource(QObject *parent)
    : BasicObject(parent)
{
}

AudioSource::~AudioSource() = default;

bool AudioSource::open(const QString &path, AVSampleFormat outFormat, int outChannels, int nth, int outSampleRate)
{
    assertOwnThread();
    mOutChannels = outChannels;
    mOutFormat = outFormat;
    mOutSampleRate = outSampleRate;
    mCurrentFrame.reset();

    mReader = std::make_unique<FFAudioStreamReader>();
    if (!mReader->openStream(path, AVMEDIA_TYPE_AUDIO, nth)) {
        mAdapter.reset();
        mReader.reset();
        return false;
    }

    // With the stream's sample format known the converter is made now; otherwise
    // the first decoded frame tells what to convert from (a converter left from an
    // earlier file would describe the wrong input).
    mAdapter.reset();
    AVCodecParameters *parameters = mReader->getCodecParam();
    if (parameters && parameters->format >= 0) {
        mAdapter = std::make_unique<FFAudioAdapter>();
        mAdapter->setupContext(parameters->sample_rate, parameters->ch_layout.nb_channels,
                               AVSampleFormat(parameters->format), parameters->ch_layout, mOutSampleRate,
                               mOutChannels, mOutFormat);
    }
    return true;
}

long long AudioSource::durationMs()
{
    if (!mReader)
        return 0;
    const long long streamMs = mReader->durationMs();
    if (int(streamMs) > 0)
        return streamMs;
    return int(mReader->demuxDurationMs());
}

AVFramePtr AudioSource::adaptFrame(AVFramePtr frame)
{
    if (!frame)
        return {};
    if (!mAdapter) {
        mAdapter = std::make_unique<FFAudioAdapter>();
        mAdapter->setupContext(frame->sample_rate, frame->ch_layout.nb_channels, AVSampleFormat(frame->format),
                               frame->ch_layout, mOutSampleRate, mOutChannels, mOutFormat);
    }
    return mAdapter->adapt(frame);
}

QSharedPointer<IAudioFrame> AudioSource::convertFrom(AVFramePtr frame)
{
    // Frames the converter refuses are skipped; the end of the stream ends the read.
    while (frame) {
        AVFramePtr converted = adaptFrame(frame);
        if (converted) {
            mCurrentFrame = converted;
            return makeAudioFrame(converted);
        }
        frame = mReader->readNextFrame();
    }
    return {};
}

QSharedPointer<IAudioFrame> AudioSource::readNextAdaptFrame()
{
    assertOwnThread();
    if (!mReader)
        return {};
    return convertFrom(mReader->readNextFrame());
}

QSharedPointer<IAudioFrame> AudioSource::seekAndReadNextAdaptFrame(long long ms, bool accurate)
{
    assertOwnThread();
    if (!mReader)
        return {};
    dropDelayedSamples();
    return convertFrom(mReader->seekAndReadNextFrame(ms, accurate));
}

QVector<QSharedPointer<IAudioFrame>> AudioSource::revertSeekAndReadNextAdaptFrame(long long ms, long long n)
{
    assertOwnThread();
    QVector<QSharedPointer<IAudioFrame>> result;
    if (!mReader)
        return result;
    dropDelayedSamples();
    for (const AVFramePtr &frame : mReader->revertSeekAndReadFrame(ms, true, n)) {
        if (AVFramePtr converted = adaptFrame(frame))
            result.prepend(makeAudioFrame(converted));
    }
    return result;
}

void AudioSource::dropDelayedSamples()
{
    if (mAdapter)
        mAdapter->dropDelayedSamples();
}

QSharedPointer<IAudioFrame> AudioSource::currentAdaptFrame()
{
    return mCurrentFrame ? makeAudioFrame(mCurrentFrame) : QSharedPointer<IAudioFrame>();
}

long long AudioSource::curPts()
{
    return mCurrentFrame ? mCurrentFrame->pts : 0;
}

long long AudioSource::frameInterval()
{
    return mReader ? mReader->frameIntervalsMs() : 0;
}

int AudioSource::currentStreamIndex()
{
    return mReader ? mReader->streamIndex() : -1;
}

QList<BasicObject *> AudioSource::threadParts() const
{
    return {mReader.get(), mAdapter.get()};
}

} // namespace Veloran
