#include "VobEntryManager.h"

#include "VeloranDec/VobChapterScan.h"

#include <QDateTime>
#include <QFileInfo>

namespace Veloran {

VobEntryManager *VobEntryManager::sharedInstance()
{
    // Lives until the process ends, like the demuxers that may use it.
    static VobEntryManager *instance = new VobEntryManager;
    return instance;
}

VobEntryManager::Stamp VobEntryManager::stampOf(const QString &path)
{
    const QFileInfo info(path);
    Stamp stamp;
    if (info.exists()) {
        stamp.size = info.size();
        const QDateTime modified = info.lastModified();
        stamp.modifiedMs = modified.isValid() ? modified.toMSecsSinceEpoch() : 0;
    }
    return stamp;
}

QVector<VobChapter> VobEntryManager::scanVobEntry(const QString &path)
{
    if (path.isEmpty())
        return {};
    // Resource paths have no absolute form of their own.
    const QString key = path.startsWith(QLatin1Char(':')) ? path : QFileInfo(path).absoluteFilePath();

    std::unique_lock<std::mutex> locker(mMutex);
    for (;;) {
        // Another thread is scanning this file: its result will serve us too.
        mScanFinished.wait(locker, [&] { return !mScanning.contains(key); });
        const Stamp stamp = stampOf(path);
        auto it = mEntries.find(key);
        if (it == mEntries.end() || !(it->stamp == stamp))
            break;
        it->lastUse = ++mUseClock;
        return it->chapters;
    }

    mScanning.insert(key);
    ++mScans;
    locker.unlock();

    // Stamp first: a file that changes during the scan is scanned again next time.
    Entry entry;
    entry.stamp = stampOf(path);
    entry.chapters = scanVobChapters(path);

    locker.lock();
    storeLocked(key, entry);
    mScanning.remove(key);
    mScanFinished.notify_all();
    return entry.chapters;
}

void VobEntryManager::storeLocked(const QString &key, const Entry &entry)
{
    Entry &stored = mEntries[key];
    stored = entry;
    stored.lastUse = ++mUseClock;
    while (mEntries.size() > kMaxEntries) {
        auto oldest = mEntries.begin();
        for (auto it = mEntries.begin(); it != mEntries.end(); ++it) {
            if (it->lastUse < oldest->lastUse)
                oldest = it;
        }
        mEntries.erase(oldest);
    }
}

int VobEntryManager::entryCount() const
{
    std::lock_guard<std::mutex> locker(mMutex);
    return mEntries.size();
}

quint64 VobEntryManager::scanCount() const
{
    std::lock_guard<std::mutex> locker(mMutex);
    return mScans;
}

} // namespace Veloran
