#include "IVideoFrame.h"

namespace Veloran {

IVideoFrame::~IVideoFrame() = default;

} // namespace Veloran
