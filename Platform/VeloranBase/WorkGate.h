#pragma once

#include "vrbase_export.h"

#include <QSemaphore>

namespace Veloran {

/// Process-wide bound on how many workers decode at the same time, across every
/// pool of the process. A counting semaphore; its size is fixed at creation.
/// Thread-safe.
class VRBASE_EXPORT WorkGate
{
public:
    /// A gate of `size` slots, all free; sizes below 1 become 1.
    explicit WorkGate(int size);

    /// Waits up to `ms` milliseconds for a slot; true when one was taken.
    bool tryAcquire(int ms);
    /// Gives back one slot taken by tryAcquire().
    void release();

    int size() const { return mSize; }                  ///< the number of slots
    int available() const { return mSlots.available(); } ///< the slots free right now

private:
    const int mSize;
    QSemaphore mSlots;
};

} // namespace Veloran
