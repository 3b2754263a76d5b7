#pragma once

#include "VeloranDec/FrameWrapper.h"
#include "VeloranDec/IAudioFrame.h"
#include "vrfetcher_export.h"

namespace Veloran {

/// The audio frame wrapper. Audio readers keep milliseconds in the frame's pts, so
/// the wrapper's time starts as the frame's pts.
class VRFETCHER_EXPORT AudioFrame : public FrameWrapper<IAudioFrame>
{
public:
    /// Wraps `frame` (may be null: an empty wrapper).
    explicit AudioFrame(AVFramePtr frame);
    /// A silent 48 kHz stereo signed 16-bit frame of its own with room for
    /// `sampleCount` samples and none used yet (nb_samples 0); empty when the buffer
    /// cannot be had.
    explicit AudioFrame(long long sampleCount);
    ~AudioFrame() override;

    AudioFrame(const AudioFrame &) = delete;
    AudioFrame &operator=(const AudioFrame &) = delete;

    bool isEmpty() const override;
    int channelCount() const override;
    int sampleRate() const override;
    int samples() const override;
    int sampleSize() const override;
    void setSamples(int samples) override;
    AVFramePtr toAVFrame() override;
};

/// A shared AudioFrame over `frame`.
VRFETCHER_EXPORT QSharedPointer<IAudioFrame> makeAudioFrame(AVFramePtr frame);

} // namespace Veloran
