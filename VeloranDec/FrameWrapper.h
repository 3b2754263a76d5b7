#pragma once

#include "FFmpegJointPtrs.h"
#include "vrfetcher_export.h"

#include <cstdint>

namespace Veloran {

/// What the video and audio frame wrappers share: the decoded frame (shared, never
/// copied), a time in milliseconds that may differ from the frame's own pts, and the
/// seek mode the frame was read under. `Interface` is IVideoFrame or IAudioFrame.
template <class Interface>
class VRFETCHER_EXPORT FrameWrapper : public Interface
{
public:
    /// The frame's format; -1 without frame.
    int format() const override;
    /// The frame's own pts; 0 without frame.
    long long rawPts() const override;
    /// The time setPts() stored when it is not negative, else the frame's own pts;
    /// without frame the stored time (-1 when unset).
    long long pts() const override;
    void setPts(long long pts) override;
    /// The frame's plane (no bound check); null without frame.
    uint8_t *data(int plane) const override;
    void setSeekMode(int seekMode) override;
    int seekMode() const override;

protected:
    FrameWrapper(AVFramePtr frame, long long pts, int seekMode);

    AVFramePtr mFrame;
    long long mPts;
    int mSeekMode;
};

} // namespace Veloran
