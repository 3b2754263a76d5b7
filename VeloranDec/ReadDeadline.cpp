#include "ReadDeadline.h"

namespace Veloran {

ReadDeadline::Scope::Scope(ReadDeadline &deadline, long long ms)
    : mDeadline(deadline)
    , mOuter(deadline.mTimer)
{
    mDeadline.mTimer = qMin(mOuter, QDeadlineTimer(ms));
}

ReadDeadline::Scope::~Scope()
{
    mDeadline.mTimer = mOuter;
}

bool ReadDeadline::expired() const
{
    return mTimer.hasExpired();
}

AVIOInterruptCB ReadDeadline::interruptCallback()
{
    return AVIOInterruptCB {&ReadDeadline::isInterrupted, this};
}

int ReadDeadline::isInterrupted(void *opaque)
{
    return opaque && static_cast<const ReadDeadline *>(opaque)->expired() ? 1 : 0;
}

} // namespace Veloran
