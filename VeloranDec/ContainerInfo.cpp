#include "ContainerInfo.h"

namespace Veloran {

AVRational ContainerInfo::getStreamTimeBase(int index) const
{
    for (const QSharedPointer<CStreamInfo> &stream : streams) {
        if (stream && stream->index == index)
            return stream->timeBase;
    }
    return AVRational {1, 1000000};
}

} // namespace Veloran
