#include "CVideoStreamInfo.h"

#include "VeloranDec/StreamInfoUtils.h"

namespace Veloran {

QSize CVideoStreamInfo::displaySize() const
{
    return calcDisplaySize(width, height, rotation, sar);
}

} // namespace Veloran
