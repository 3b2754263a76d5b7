#include "VeloranDec/FrameWrapper.h"

#include "VeloranDec/IAudioFrame.h"
#include "VeloranDec/IVideoFrame.h"

extern "C" {
#include <libavutil/frame.h>
}

namespace Veloran {

template <class Interface>
FrameWrapper<Interface>::FrameWrapper(AVFramePtr frame, long long pts, int seekMode)
    : mFrame(std::move(frame))
    , mPts(pts)
    , mSeekMode(seekMode)
{
}

template <class Interface>
int FrameWrapper<Interface>::format() const
{
    return mFrame ? mFrame->format : -1;
}

template <class Interface>
long long FrameWrapper<Interface>::rawPts() const
{
    return mFrame ? mFrame->pts : 0;
}

template <class Interface>
long long FrameWrapper<Interface>::pts() const
{
    if (mPts >= 0 || !mFrame)
        return mPts;
    return mFrame->pts;
}

template <class Interface>
void FrameWrapper<Interface>::setPts(long long pts)
{
    mPts = pts;
}

template <class Interface>
uint8_t *FrameWrapper<Interface>::data(int plane) const
{
    return mFrame ? mFrame->data[plane] : nullptr;
}

template <class Interface>
void FrameWrapper<Interface>::setSeekMode(int seekMode)
{
    mSeekMode = seekMode;
}

template <class Interface>
int FrameWrapper<Interface>::seekMode() const
{
    return mSeekMode;
}

template class FrameWrapper<IVideoFrame>;
template class FrameWrapper<IAudioFrame>;

} // namespace Veloran
