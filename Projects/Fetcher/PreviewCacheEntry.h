#pragma once

#include <QByteArray>
#include <QImage>
#include <QList>

#include <optional>

namespace Veloran {

// Peaks as the audio picker answered them: the length of the range actually scanned
// (cut to the end of a shorter file) and all values of all pieces, in order.
struct CachedPeaks
{
    qint64 length = 0;
    QList<uint8_t> values;
};

// The bytes of one preview-cache entry: a header (magic, format version, payload size
// and the payload's CRC-32) and the payload. Reading checks all of it, so a damaged or
// truncated entry reads as nothing, like a missing one.
//
// Thumbnails are kept as their raw pixel rows with size and format rather than as
// PNG: for a 160 x 90 thumbnail PNG took 3 to 17 ms to write and 1 to 2 ms to read,
// the raw rows well under 0.1 ms each way (CRC included), at 43 kB instead of 3 to
// 17 kB. Reading back also gives the very format the picker made (PNG would come back
// as 32-bit RGB), so a cached answer equals the computed one.
class PreviewCacheEntry
{
public:
    static QByteArray fromThumbnail(const QImage &image);
    // A null image when the entry is damaged.
    static QImage toThumbnail(const QByteArray &entry);

    static QByteArray fromPeaks(const CachedPeaks &peaks);
    static std::optional<CachedPeaks> toPeaks(const QByteArray &entry);

private:
    static QByteArray seal(const QByteArray &payload);
    // The payload, or a null array when the header or the checksum does not match.
    static QByteArray open(const QByteArray &entry);
};

} // namespace Veloran
