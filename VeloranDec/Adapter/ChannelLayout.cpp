#include "ChannelLayout.h"

namespace Veloran {

ChannelLayout::ChannelLayout(const AVChannelLayout &layout)
{
    if (av_channel_layout_copy(&mLayout, &layout) < 0)
        mLayout = AVChannelLayout {};
}

ChannelLayout::ChannelLayout(const ChannelLayout &other)
    : ChannelLayout(other.mLayout)
{
}

ChannelLayout &ChannelLayout::operator=(const ChannelLayout &other)
{
    // av_channel_layout_copy releases what the target held first.
    if (this != &other && av_channel_layout_copy(&mLayout, &other.mLayout) < 0)
        mLayout = AVChannelLayout {};
    return *this;
}

ChannelLayout::~ChannelLayout()
{
    av_channel_layout_uninit(&mLayout);
}

ChannelLayout ChannelLayout::defaultFor(int channels)
{
    ChannelLayout layout;
    av_channel_layout_default(&layout.mLayout, channels);
    return layout;
}

} // namespace Veloran
