#include "WorkGate.h"

namespace Veloran {

WorkGate::WorkGate(int size)
    : mSize(size < 1 ? 1 : size)
    , mSlots(mSize)
{
}

bool WorkGate::tryAcquire(int ms)
{
    return mSlots.tryAcquire(1, ms);
}

void WorkGate::release()
{
    mSlots.release(1);
}

} // namespace Veloran
