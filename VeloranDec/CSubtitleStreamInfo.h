#pragma once

namespace Veloran {

/// A subtitle stream: where it is and which codec it needs.
struct CSubtitleStreamInfo
{
    int index = 0;   ///< the stream's index in the container
    int codecId = 0; ///< AVCodecID
};

} // namespace Veloran
