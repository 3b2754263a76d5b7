#pragma once

#include "vrfetcher_export.h"

extern "C" {
#include <libavutil/channel_layout.h>
}

namespace Veloran {

/// Owns one AVChannelLayout: copies are deep (a custom channel map is duplicated)
/// and the layout is released with its owner.
class VRFETCHER_EXPORT ChannelLayout
{
public:
    /// An unspecified layout of no channels.
    ChannelLayout() = default;
    /// A copy of `layout`; unspecified when it cannot be copied.
    explicit ChannelLayout(const AVChannelLayout &layout);
    ChannelLayout(const ChannelLayout &other);
    ChannelLayout &operator=(const ChannelLayout &other);
    ~ChannelLayout();

    /// FFmpeg's default layout for this many channels (unspecified order when it has none).
    static ChannelLayout defaultFor(int channels);

    const AVChannelLayout &get() const { return mLayout; }
    AVChannelLayout &get() { return mLayout; }

private:
    AVChannelLayout mLayout {};
};

} // namespace Veloran
