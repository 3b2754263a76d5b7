#pragma once

#include "VeloranDec/VobChapter.h"
#include "vrfetcher_export.h"

#include <QHash>
#include <QSet>
#include <QString>
#include <QVector>

#include <condition_variable>
#include <mutex>

namespace Veloran {

/// The process-wide index of VOB chapters. Scanning a file costs a full read, so
/// the result is kept per path for the next demuxer that opens it; pickers on pool
/// threads may ask for the same file at once, and then only one of them scans.
class VRFETCHER_EXPORT VobEntryManager
{
public:
    /// Entries kept; the least recently used goes first.
    static constexpr int kMaxEntries = 32;

    /// The one index of the process, made on first use and kept until it ends.
    static VobEntryManager *sharedInstance();

    /// The chapters of the file, scanned now or taken from the index. A file whose
    /// size or modification time changed since its scan is scanned again. Empty
    /// when the file cannot be opened.
    QVector<VobChapter> scanVobEntry(const QString &path);

    /// How many files the index holds now.
    int entryCount() const;
    /// How many scans ran in this process (diagnostics).
    quint64 scanCount() const;

private:
    struct Stamp
    {
        long long size = -1;
        long long modifiedMs = 0;
        bool operator==(const Stamp &other) const { return size == other.size && modifiedMs == other.modifiedMs; }
    };
    struct Entry
    {
        Stamp stamp;
        QVector<VobChapter> chapters;
        quint64 lastUse = 0;
    };

    VobEntryManager() = default;
    static Stamp stampOf(const QString &path);
    void storeLocked(const QString &key, const Entry &entry);

    /// Standard primitives rather than Qt's: they are what ThreadSanitizer sees
    /// through, so races here would not hide among false reports.
    mutable std::mutex mMutex;
    std::condition_variable mScanFinished;
    QHash<QString, Entry> mEntries;
    QSet<QString> mScanning;
    quint64 mUseClock = 0;
    quint64 mScans = 0;
};

} // namespace Veloran
