#pragma once

namespace Veloran {

// A subtitle stream: where it is and which codec it needs.
struct CSubtitleStreamInfo
{
    int index = 0;
    int codecId = 0; // AVCodecID
};

} // namespace Veloran
