#pragma once

#include "FFmpegJointPtrs.h"
#include "vrfetcher_export.h"

#include <QSharedPointer>

namespace Veloran {

/// Decoded audio samples with their time in milliseconds.
///
/// Always held by QSharedPointer<IAudioFrame>; the samples are shared, never copied.
/// No locks: only one holder may change a wrapper at a time. An empty wrapper's
/// getters give -1, 0 or null.
class VRFETCHER_EXPORT IAudioFrame
{
public:
    virtual ~IAudioFrame();

    virtual bool isEmpty() const = 0;             ///< true without an AVFrame
    virtual int format() const = 0;               ///< sample format, -1 when empty
    virtual long long rawPts() const = 0;         ///< the frame's own pts, 0 when empty
    virtual long long pts() const = 0;            ///< the time set by setPts, else the frame's pts
    virtual void setPts(long long pts) = 0;       ///< a negative time means unset
    virtual int channelCount() const = 0;         ///< channels; 0 when empty
    virtual int sampleRate() const = 0;           ///< samples per second; 0 when empty
    virtual int samples() const = 0;              ///< samples per channel
    /// The samples of `plane` (not bound-checked); null when empty.
    virtual uint8_t *data(int plane) const = 0;
    virtual int sampleSize() const = 0;           ///< bytes of one sample of one channel
    virtual void setSamples(int samples) = 0;     ///< sets the used samples per channel; ignored when empty
    /// The frame, with the wrapper's time written into its pts.
    virtual AVFramePtr toAVFrame() = 0;
    virtual void setSeekMode(int seekMode) = 0;   ///< tags the seek mode the producer used
    virtual int seekMode() const = 0;             ///< the seek mode tag, 0 unless set
};

} // namespace Veloran
