#pragma once

#include "vrbase_export.h"

#include <QSemaphore>

namespace Veloran {

// Process-wide bound on how many workers decode at the same time, across every
// pool of the process. A counting semaphore; its size is fixed at creation.
class VRBASE_EXPORT WorkGate
{
public:
    explicit WorkGate(int size);

    // Waits up to `ms` milliseconds for a slot; true when one was taken.
    bool tryAcquire(int ms);
    void release();

    int size() const { return mSize; }
    int available() const { return mSlots.available(); }

private:
    const int mSize;
    QSemaphore mSlots;
};

} // namespace Veloran
