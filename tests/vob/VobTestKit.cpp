#include "VobTestKit.h"

#include "TestMedia.h"

#include <QColor>
#include <QFile>

#include <cmath>

namespace VobTestKit {

const qint64 kSegmentMs[kSegments] = {2000, 1600, 2400};

qint64 segmentStartMs(int segment)
{
    qint64 start = 0;
    for (int i = 0; i < segment && i < kSegments; ++i)
        start += kSegmentMs[i];
    return start;
}

namespace {

FrameId fromYuv(double luma, double cb, double cr, int chromaTolerance)
{
    FrameId id;
    const int chroma[kSegments][2] = {{120, 136}, {136, 120}, {136, 136}};
    for (int i = 0; i < kSegments; ++i) {
        if (std::abs(cb - chroma[i][0]) <= chromaTolerance && std::abs(cr - chroma[i][1]) <= chromaTolerance)
            id.segment = i;
    }
    id.number = int(std::lround((luma - 32) / 3.0));
    return id;
}

} // namespace

FrameId identify(const AVFrame *frame)
{
    if (!frame || frame->format != AV_PIX_FMT_YUV420P || frame->width < 2 || frame->height < 2)
        return {};
    const int x = frame->width / 2;
    const int y = frame->height / 2;
    return fromYuv(frame->data[0][y * frame->linesize[0] + x], frame->data[1][(y / 2) * frame->linesize[1] + x / 2],
                   frame->data[2][(y / 2) * frame->linesize[2] + x / 2], 6);
}

FrameId identify(const QImage &image)
{
    if (image.isNull())
        return {};
    const QColor c = image.pixelColor(image.width() / 2, image.height() / 2);
    const double r = c.red(), g = c.green(), b = c.blue();
    // Back to limited-range BT.601, the way the frames were made.
    const double luma = 16 + 0.257 * r + 0.504 * g + 0.098 * b;
    const double cb = 128 - 0.148 * r - 0.291 * g + 0.439 * b;
    const double cr = 128 + 0.439 * r - 0.368 * g - 0.071 * b;
    return fromYuv(luma, cb, cr, 6);
}

int globalFrame(const FrameId &id)
{
    return id.segment < 0 ? -1 : int(segmentStartMs(id.segment) / kFrameMs) + id.number;
}

QString chaptersPath()
{
    return TestMedia::path(QStringLiteral("vob-chapters.VOB"));
}

QString writeScratch(const QString &test, const QString &name, const QByteArray &bytes)
{
    const QString path = TestMedia::scratchDir(QStringLiteral("vob-") + test) + QLatin1Char('/') + name;
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size())
        return {};
    return path;
}

QByteArray readAll(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

} // namespace VobTestKit
