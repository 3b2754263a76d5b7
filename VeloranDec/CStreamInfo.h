#pragma once

extern "C" {
#include <libavutil/rational.h>
}

namespace Veloran {

// What every stream of a container has: its index, media type, codec and time base.
// Plain data, made once by the factories in StreamInfoUtils and never changed.
struct CStreamInfo
{
    int index = 0;
    int mediaType = -1; // AVMediaType; only the generic factory fills it
    int codecId = 0;    // AVCodecID
    AVRational timeBase {0, 0};
};

} // namespace Veloran
