#pragma once

#include "VeloranDec/IAudioFrame.h"
#include "vrfetcher_export.h"

namespace Veloran {

/// The audio frame wrapper. Audio readers keep milliseconds in the frame's pts, so
/// the wrapper's time starts as the frame's pts.
class VRFETCHER_EXPORT AudioFrame : public IAudioFrame
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
    int format() const override;
    long long rawPts() const override;
    long long pts() const override;
    void setPts(long long pts) override;
    int channelCount() const override;
    int sampleRate() const override;
    int samples() const override;
    uint8_t *data(int plane) const override;
    int sampleSize() const override;
    void setSamples(int samples) override;
    AVFramePtr toAVFrame() override;
    void setSeekMode(int seekMode) override;
    int seekMode() const override;

private:
    AVFramePtr mFrame;
    long long mPts = -1;
    int mSeekMode = 0;
};

/// A shared AudioFrame over `frame`.
VRFETCHER_EXPORT QSharedPointer<IAudioFrame> makeAudioFrame(AVFramePtr frame);

} // namespace Veloran
