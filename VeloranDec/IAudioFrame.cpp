#include "IAudioFrame.h"

namespace Veloran {

IAudioFrame::~IAudioFrame() = default;

} // namespace Veloran
