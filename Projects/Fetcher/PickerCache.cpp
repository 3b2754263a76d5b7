#include "PickerCache.h"

#include <algorithm>
#include <limits>

namespace Veloran {

PickerCache::~PickerCache() = default;

std::unique_ptr<AVPicker> PickerCache::take(PickerKind kind, const QString &filePath)
{
    std::lock_guard<std::mutex> locker(mMutex);
    const auto found = std::find_if(mPickers.begin(), mPickers.end(), [&](const std::unique_ptr<AVPicker> &picker) {
        return picker->kind() == kind && picker->filePath() == filePath;
    });
    if (found == mPickers.end())
        return nullptr;
    std::unique_ptr<AVPicker> picker = std::move(*found);
    mPickers.erase(found);
    return picker;
}

void PickerCache::put(std::unique_ptr<AVPicker> picker)
{
    std::lock_guard<std::mutex> locker(mMutex);
    mPickers.push_back(std::move(picker));
}

void PickerCache::dropOldest(int count)
{
    std::deque<std::unique_ptr<AVPicker>> dropped;
    {
        std::lock_guard<std::mutex> locker(mMutex);
        const auto end = mPickers.begin() + std::clamp<std::ptrdiff_t>(count, 0, std::ptrdiff_t(mPickers.size()));
        std::move(mPickers.begin(), end, std::back_inserter(dropped));
        mPickers.erase(mPickers.begin(), end);
    }
    // Closing the files happens here, without the lock.
}

void PickerCache::clear()
{
    dropOldest(std::numeric_limits<int>::max());
}

int PickerCache::size() const
{
    std::lock_guard<std::mutex> locker(mMutex);
    return int(mPickers.size());
}

QStringList PickerCache::files() const
{
    QStringList files;
    std::lock_guard<std::mutex> locker(mMutex);
    for (const std::unique_ptr<AVPicker> &picker : mPickers)
        files.append(picker->filePath());
    return files;
}

} // namespace Veloran
