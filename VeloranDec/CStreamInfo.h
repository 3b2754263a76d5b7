#pragma once

extern "C" {
#include <libavutil/rational.h>
}

namespace Veloran {

/// What every stream of a container has: its index, media type, codec and time base.
/// Plain data, made once by the factories in StreamInfoUtils and never changed, so a
/// record may be read from any thread.
struct CStreamInfo
{
    int index = 0;              ///< the stream's index in the container
    int mediaType = -1;         ///< AVMediaType; only the generic factory fills it
    int codecId = 0;            ///< AVCodecID
    AVRational timeBase {0, 0}; ///< the stream's time base
};

} // namespace Veloran
