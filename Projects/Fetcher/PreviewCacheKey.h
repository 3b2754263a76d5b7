#pragma once

#include <QByteArray>
#include <QString>

namespace Veloran {

struct AudioSampleRequest;
struct VideoThumbRequest;

// Names one entry of the preview cache by everything its answer depends on, so that
// an entry can never be stale: the media file as it is now (canonical path, size and
// modification time; for Qt-resource media a digest of the resource's data), the
// request fields that shape the answer, and the version of the code that computes it.
// Request ids and fields that are only echoed back are left out.
class PreviewCacheKey
{
public:
    // Invalid for a freeze frame (it is written to the host's file, not cached) and
    // for a file that cannot be identified (missing, a folder).
    static PreviewCacheKey thumbnail(const VideoThumbRequest &request);
    static PreviewCacheKey peaks(const AudioSampleRequest &request);

    bool isValid() const { return !mFileName.isEmpty(); }
    // The entry's file name: the key's SHA-256 digest in hex plus entrySuffix().
    QString fileName() const { return mFileName; }

    // ".preview": every file of the cache folder the cache may read, replace or remove
    // starts with a digest and carries this suffix.
    static QString entrySuffix();

private:
    PreviewCacheKey() = default;
    static PreviewCacheKey make(const QString &mediaPath, const QByteArray &parameters);
    static QByteArray mediaIdentity(const QString &path);
    static QByteArray resourceDigest(const QString &path);

    QString mFileName;
};

} // namespace Veloran
