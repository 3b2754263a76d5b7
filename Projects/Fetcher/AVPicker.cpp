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

QString AVPicker::filePath() const
{
    return mFilePath;
}

} // namespace Veloran
