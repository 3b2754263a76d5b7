#pragma once

#include "Projects/Fetcher/AVPicker.h"

#include <QStringList>

#include <deque>
#include <memory>
#include <mutex>

namespace Veloran {

// The idle pickers of the manager, oldest first, each with its opened file. Owns
// them: a picker leaves it to run again, or is destroyed here when dropped.
// Safe to use from any thread; pickers are destroyed outside the lock.
class PickerCache
{
public:
    ~PickerCache();

    // The oldest idle picker of `kind` for exactly `filePath`; null when none.
    std::unique_ptr<AVPicker> take(PickerKind kind, const QString &filePath);
    // Newest last.
    void put(std::unique_ptr<AVPicker> picker);
    // Drops the `count` oldest.
    void dropOldest(int count);
    void clear();

    int size() const;
    // Files of the idle pickers, oldest first.
    QStringList files() const;

private:
    mutable std::mutex mMutex;
    std::deque<std::unique_ptr<AVPicker>> mPickers;
};

} // namespace Veloran
