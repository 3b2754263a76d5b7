#include "PreviewCacheKey.h"

#include "Projects/Fetcher/AudioSampleRequest.h"
#include "Projects/Fetcher/VideoThumbRequest.h"

#include <QCryptographicHash>
#include <QDataStream>
#include <QDateTime>
#include <QFileInfo>
#include <QHash>
#include <QResource>

#include <mutex>

namespace Veloran {

namespace {

// Versions of the code behind an answer. Change the string whenever the answers
// change, so that entries written by older code are no longer found:
// the colour handling covers everything that turns a frame into thumbnail pixels
// (colour conversion, scaling, aspect and rotation); the peaks version the audio
// picker's reduction of samples to values.
constexpr char kColourHandling[] = "colour-2";
constexpr char kPeakAlgorithm[] = "peaks-1";

QByteArray sha256(const char *data, qint64 size)
{
    QCryptographicHash hash(QCryptographicHash::Sha256);
    constexpr qint64 kChunk = 1 << 30; // addData takes an int
    for (qint64 done = 0; done < size; done += kChunk)
        hash.addData(data + done, static_cast<int>(qMin(kChunk, size - done)));
    return hash.result();
}

} // namespace

QString PreviewCacheKey::entrySuffix()
{
    return QStringLiteral(".preview");
}

PreviewCacheKey PreviewCacheKey::thumbnail(const VideoThumbRequest &request)
{
    if (request.isFreezeFrame())
        return {};
    QByteArray parameters;
    QDataStream out(&parameters, QIODevice::WriteOnly);
    out << QByteArray("thumbnail") << QByteArray(kColourHandling) << request.time << request.width << request.seekFlag;
    return make(request.filePath, parameters);
}

PreviewCacheKey PreviewCacheKey::peaks(const AudioSampleRequest &request)
{
    QByteArray parameters;
    QDataStream out(&parameters, QIODevice::WriteOnly);
    out << QByteArray("peaks") << QByteArray(kPeakAlgorithm) << request.begin << request.length << request.sampleCount
        << request.count;
    return make(request.sourcePath, parameters);
}

PreviewCacheKey PreviewCacheKey::make(const QString &mediaPath, const QByteArray &parameters)
{
    const QByteArray media = mediaIdentity(mediaPath);
    PreviewCacheKey key;
    if (!media.isEmpty()) {
        const QByteArray text = media + parameters;
        key.mFileName = QString::fromLatin1(sha256(text.constData(), text.size()).toHex()) + entrySuffix();
    }
    return key;
}

QByteArray PreviewCacheKey::mediaIdentity(const QString &path)
{
    QByteArray identity;
    QDataStream out(&identity, QIODevice::WriteOnly);
    if (path.startsWith(QLatin1Char(':'))) {
        const QByteArray digest = resourceDigest(path);
        if (digest.isEmpty())
            return {};
        out << QByteArray("resource") << digest;
        return identity;
    }
    const QFileInfo info(path);
    if (!info.isFile())
        return {};
    out << QByteArray("file") << info.canonicalFilePath() << info.size()
        << info.lastModified().toMSecsSinceEpoch();
    return identity;
}

QByteArray PreviewCacheKey::resourceDigest(const QString &path)
{
    const QResource resource(path);
    if (!resource.isValid() || !resource.data()) // a folder has no data
        return {};
    // Hashing a large resource for every request would cost more than a thumbnail;
    // the digest is kept while the path still maps to the same registered data.
    struct Known
    {
        const uchar *data = nullptr;
        qint64 size = 0;
        QByteArray digest;
    };
    static std::mutex mutex;
    static QHash<QString, Known> known;
    std::lock_guard<std::mutex> locker(mutex);
    Known &entry = known[path];
    if (entry.data != resource.data() || entry.size != resource.size()) {
        entry = {resource.data(), resource.size(),
                 sha256(reinterpret_cast<const char *>(resource.data()), resource.size())
                     + QByteArray::number(int(resource.compressionAlgorithm()))};
    }
    return entry.digest;
}

} // namespace Veloran
