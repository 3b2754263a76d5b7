#include "PreviewCache.h"

#include "Projects/Fetcher/PreviewCacheKey.h"
#include "VeloranBaseEntry.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QSaveFile>

namespace Veloran {

PreviewCache &PreviewCache::shared()
{
    static PreviewCache cache;
    return cache;
}

void PreviewCache::setDirectory(const QString &directory)
{
    const QString folder = directory.isEmpty() ? QString() : QDir(directory).absolutePath();
    if (!folder.isEmpty() && !QDir().mkpath(folder))
        VR_LOG << "preview cache: cannot make the folder " << folder;
    VR_LOG << "preview cache: " << (folder.isEmpty() ? QStringLiteral("off") : folder);
    std::lock_guard<std::mutex> locker(mMutex);
    mDirectory = folder;
    mKnownSize = -1;
    mWriteFailureLogged = false;
}

void PreviewCache::setSizeLimit(qint64 bytes)
{
    std::lock_guard<std::mutex> locker(mMutex);
    mSizeLimit = qMax<qint64>(0, bytes);
    mKnownSize = -1;
}

bool PreviewCache::isEnabled() const
{
    return !directory().isEmpty();
}

QString PreviewCache::directory() const
{
    std::lock_guard<std::mutex> locker(mMutex);
    return mDirectory;
}

QVector<QImage> PreviewCache::thumbnails(const QList<VideoThumbRequest> &requests)
{
    QVector<QImage> images(requests.size());
    const QString folder = directory();
    if (folder.isEmpty())
        return images;
    for (int i = 0; i < requests.size(); ++i) {
        const PreviewCacheKey key = PreviewCacheKey::thumbnail(requests.at(i));
        if (key.isValid())
            images[i] = PreviewCacheEntry::toThumbnail(read(folder, key));
    }
    return images;
}

void PreviewCache::storeThumbnail(const VideoThumbRequest &request, const QImage &image)
{
    if (isEnabled() && !image.isNull())
        write(PreviewCacheKey::thumbnail(request), PreviewCacheEntry::fromThumbnail(image));
}

std::optional<CachedPeaks> PreviewCache::peaks(const AudioSampleRequest &request)
{
    const QString folder = directory();
    if (folder.isEmpty())
        return std::nullopt;
    const PreviewCacheKey key = PreviewCacheKey::peaks(request);
    return key.isValid() ? PreviewCacheEntry::toPeaks(read(folder, key)) : std::nullopt;
}

void PreviewCache::storePeaks(const AudioSampleRequest &request, const CachedPeaks &peaks)
{
    if (isEnabled())
        write(PreviewCacheKey::peaks(request), PreviewCacheEntry::fromPeaks(peaks));
}

QByteArray PreviewCache::read(const QString &directory, const PreviewCacheKey &key)
{
    QFile file(directory + QLatin1Char('/') + key.fileName());
    if (!file.open(QIODevice::ReadOnly))
        return {};
    const QByteArray entry = file.readAll();
    // The modification time is the entry's last use: the size limit removes the oldest.
    file.setFileTime(QDateTime::currentDateTimeUtc(), QFileDevice::FileModificationTime);
    return entry;
}

void PreviewCache::write(const PreviewCacheKey &key, const QByteArray &entry)
{
    const QString folder = directory();
    if (folder.isEmpty() || !key.isValid())
        return;
    QSaveFile file(folder + QLatin1Char('/') + key.fileName());
    if (!file.open(QIODevice::WriteOnly) || file.write(entry) != entry.size() || !file.commit()) {
        if (!mWriteFailureLogged.exchange(true))
            VR_LOG << "preview cache: cannot write " << file.fileName() << ": " << file.errorString();
        return;
    }
    keepWithinLimit(folder, entry.size());
}

void PreviewCache::keepWithinLimit(const QString &directory, qint64 written)
{
    {
        std::lock_guard<std::mutex> locker(mMutex);
        if (mSizeLimit <= 0 || directory != mDirectory)
            return;
        if (mKnownSize >= 0) {
            mKnownSize += written;
            if (mKnownSize <= mSizeLimit)
                return;
        }
    }
    std::unique_lock<std::mutex> trimming(mTrimMutex, std::try_to_lock);
    if (!trimming.owns_lock())
        return; // another thread is at it
    qint64 limit = 0;
    {
        std::lock_guard<std::mutex> locker(mMutex);
        limit = mSizeLimit;
    }
    // Counted afresh: other processes may write to the same folder. Temporary files of
    // writes that never finished (a crash) count too, and go first as they age.
    const QString suffix = QLatin1Char('*') + PreviewCacheKey::entrySuffix();
    const QFileInfoList entries = QDir(directory).entryInfoList({suffix, suffix + QStringLiteral(".*")}, QDir::Files,
                                                                QDir::Time | QDir::Reversed); // oldest first
    qint64 total = 0;
    for (const QFileInfo &entry : entries)
        total += entry.size();
    // Down to 9/10 of the limit, so that the folder is not listed again at every write.
    const qint64 target = limit > 0 && total > limit ? limit - limit / 10 : total;
    for (const QFileInfo &entry : entries) {
        if (total <= target)
            break;
        if (QFile::remove(entry.absoluteFilePath()))
            total -= entry.size();
    }
    std::lock_guard<std::mutex> locker(mMutex);
    if (directory == mDirectory)
        mKnownSize = total;
}

} // namespace Veloran
