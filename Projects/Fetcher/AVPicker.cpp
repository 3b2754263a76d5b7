#include "AVPicker.h"

namespace Veloran {

AVPicker::AVPicker(const QString &filePath, AVPickerManager *manager)
    : mManager(manager)
    , mFilePath(filePath)
{
}

AVPicker::~AVPicker() = default;

void AVPicker::requestInterruption()
{
    mInterrupted.exchange(true);
}

bool AVPicker::isInterruptionRequested() const
{
    return mInterrupted.load();
}

void AVPicker::handOver()
{
    mRuns.fetch_add(1, std::memory_order_release);
}

void AVPicker::takeOver() const
{
    (void)mRuns.load(std::memory_order_acquire);
}

QString AVPicker::filePath() const
{
    return mFilePath;
}

} // namespace Veloran
