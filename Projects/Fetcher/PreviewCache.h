#pragma once

#include "Projects/Fetcher/AudioSampleRequest.h"
#include "Projects/Fetcher/PreviewCacheEntry.h"
#include "Projects/Fetcher/VideoThumbRequest.h"

#include <QImage>
#include <QString>
#include <QVector>

#include <atomic>
#include <mutex>
#include <optional>

namespace Veloran {

class PreviewCacheKey;

// The process-wide folder of thumbnails and waveform peaks that the pickers computed,
// one file per answer, named by a key that changes with the file and the request (see
// PreviewCacheKey), so that a later request for the same unchanged file is answered
// without decoding. Off (no folder) until the host names one.
//
// Entries are written whole through QSaveFile (a temporary file renamed over the
// entry), so neither a crash nor several processes writing the same entry ever leave
// a broken one; a damaged entry reads as a miss and is written again. A hit touches
// the entry's modification time; past the size limit the entries touched longest ago
// are removed. Thread-safe; several processes may share a folder.
class PreviewCache
{
public:
    static PreviewCache &shared();

    // An empty path turns the cache off. The folder is made when missing.
    void setDirectory(const QString &directory);
    // Bytes the folder may hold; 0 (the default) for no bound. Checked after writes:
    // going over it removes the least recently used entries down to 9/10 of it.
    void setSizeLimit(qint64 bytes);
    bool isEnabled() const;

    // The cached thumbnail of each request, in order; a null image for a miss (and
    // for every freeze frame).
    QVector<QImage> thumbnails(const QList<VideoThumbRequest> &requests);
    void storeThumbnail(const VideoThumbRequest &request, const QImage &image);

    // `request` as it was asked (before its length is cut to the file).
    std::optional<CachedPeaks> peaks(const AudioSampleRequest &request);
    void storePeaks(const AudioSampleRequest &request, const CachedPeaks &peaks);

private:
    PreviewCache() = default;

    QString directory() const;
    // The entry's bytes (the hit touched), or empty when it is not there.
    QByteArray read(const QString &directory, const PreviewCacheKey &key);
    void write(const PreviewCacheKey &key, const QByteArray &entry);
    void keepWithinLimit(const QString &directory, qint64 written);

    mutable std::mutex mMutex; // guards the three fields below
    QString mDirectory;
    qint64 mSizeLimit = 0;
    qint64 mKnownSize = -1; // bytes in the folder as last counted plus those written since; -1: not counted
    std::mutex mTrimMutex;  // one trim at a time in this process
    std::atomic_bool mWriteFailureLogged{false};
};

} // namespace Veloran
