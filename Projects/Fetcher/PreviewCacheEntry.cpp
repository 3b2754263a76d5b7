#include "PreviewCacheEntry.h"

extern "C" {
#include <libavutil/crc.h>
}

#include "VeloranBaseEntry.h"

#include <QDataStream>

#include <algorithm>

namespace Veloran {

namespace {

constexpr quint32 kMagic = 0x56525043; // "VRPC"
constexpr quint32 kFormatVersion = 1;
constexpr int kHeaderSize = 4 * 4;

quint32 crc32(const char *data, int size)
{
    return av_crc(av_crc_get_table(AV_CRC_32_IEEE_LE), UINT32_MAX, reinterpret_cast<const uint8_t *>(data),
                  static_cast<size_t>(size));
}

bool isStorableFormat(qint32 format)
{
    // At least a byte per pixel, which bounds the size check below.
    return format > QImage::Format_Invalid && format < QImage::NImageFormats
        && QImage::toPixelFormat(QImage::Format(format)).bitsPerPixel() >= 8;
}

} // namespace

QByteArray PreviewCacheEntry::seal(const QByteArray &payload)
{
    QByteArray entry;
    entry.reserve(kHeaderSize + payload.size());
    QDataStream(&entry, QIODevice::WriteOnly) << kMagic << kFormatVersion << quint32(payload.size())
                                              << crc32(payload.constData(), payload.size());
    return entry + payload;
}

QByteArray PreviewCacheEntry::open(const QByteArray &entry)
{
    if (entry.isEmpty())
        return {}; // not there
    quint32 magic = 0, version = 0, size = 0, crc = 0; // stay 0 when the header is cut short
    QDataStream(entry) >> magic >> version >> size >> crc;
    const QByteArray payload = entry.mid(kHeaderSize);
    if (magic != kMagic || version != kFormatVersion || size != quint32(payload.size())
        || crc != crc32(payload.constData(), payload.size())) {
        VR_LOG << "preview cache: a damaged entry, computed again";
        return {};
    }
    return payload;
}

QByteArray PreviewCacheEntry::fromThumbnail(const QImage &image)
{
    // The pixels of each row without the row's padding, which holds no defined bytes.
    const int rowBytes = image.width() * image.depth() / 8;
    QByteArray rows;
    rows.reserve(rowBytes * image.height());
    for (int y = 0; y < image.height(); ++y)
        rows.append(reinterpret_cast<const char *>(image.constScanLine(y)), rowBytes);
    QByteArray payload;
    QDataStream(&payload, QIODevice::WriteOnly)
        << qint32(image.width()) << qint32(image.height()) << qint32(image.format()) << rows;
    return seal(payload);
}

QImage PreviewCacheEntry::toThumbnail(const QByteArray &entry)
{
    const QByteArray payload = open(entry);
    QDataStream in(payload);
    qint32 width = 0, height = 0, format = 0;
    QByteArray rows;
    in >> width >> height >> format >> rows;
    if (payload.isNull() || in.status() != QDataStream::Ok || !in.atEnd() || width < 1 || height < 1
        || !isStorableFormat(format) || qint64(width) * height > rows.size())
        return {};
    QImage image(width, height, QImage::Format(format));
    const int rowBytes = width * image.depth() / 8;
    if (image.isNull() || qint64(rowBytes) * height != rows.size())
        return {};
    for (int y = 0; y < height; ++y)
        std::copy_n(rows.constData() + qint64(y) * rowBytes, rowBytes, reinterpret_cast<char *>(image.scanLine(y)));
    return image;
}

QByteArray PreviewCacheEntry::fromPeaks(const CachedPeaks &peaks)
{
    QByteArray payload;
    QDataStream(&payload, QIODevice::WriteOnly)
        << peaks.length << QByteArray(reinterpret_cast<const char *>(peaks.values.toVector().constData()),
                                      peaks.values.size());
    return seal(payload);
}

std::optional<CachedPeaks> PreviewCacheEntry::toPeaks(const QByteArray &entry)
{
    const QByteArray payload = open(entry);
    QDataStream in(payload);
    CachedPeaks peaks;
    QByteArray values;
    in >> peaks.length >> values;
    if (payload.isNull() || in.status() != QDataStream::Ok || !in.atEnd())
        return std::nullopt;
    peaks.values.reserve(values.size());
    for (char value : qAsConst(values))
        peaks.values.append(static_cast<uint8_t>(value));
    return peaks;
}

} // namespace Veloran
