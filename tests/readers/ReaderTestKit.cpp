#include "ReaderTestKit.h"

#include "FFmpegJoint.h"
#include "TestMedia.h"

#include <QFile>
#include <QTextStream>

#include <algorithm>

extern "C" {
#include <libavutil/mathematics.h>
#include <libavutil/pixdesc.h>
}

namespace ReaderTestKit {

int frameNumber(const AVFrame *frame)
{
    if (!frame || frame->width < 40 || frame->height < 2 || !frame->data[0])
        return -1;
    const AVPixFmtDescriptor *desc = av_pix_fmt_desc_get(AVPixelFormat(frame->format));
    const bool wide = desc && desc->comp[0].depth > 8 && desc->comp[0].depth <= 16 && !(desc->flags & AV_PIX_FMT_FLAG_BE);
    if (!desc || desc->comp[0].plane != 0 || (desc->comp[0].depth != 8 && !wide))
        return -1;
    // The middle row at the centre of each stripe; deeper samples are little-endian words.
    const int stripe = frame->width / 10;
    const uint8_t *row = frame->data[0] + (frame->height / 2) * frame->linesize[0] + desc->comp[0].offset;
    const int middle = 128 << (desc->comp[0].depth - 8);
    int number = 0;
    for (int bit = 0; bit < 10; ++bit) {
        const uint8_t *sample = row + (stripe * bit + stripe / 2) * desc->comp[0].step;
        if ((wide ? sample[0] | sample[1] << 8 : sample[0]) > middle)
            number |= 1 << bit;
    }
    return number;
}

QVector<long long> frameTimesMs(const QString &listName)
{
    QVector<long long> times;
    QFile file(TestMedia::path(listName));
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text))
        return times;
    QTextStream in(&file);
    const QStringList timeBase = in.readLine().trimmed().split('/');
    if (timeBase.size() != 2)
        return times;
    const AVRational base {timeBase[0].toInt(), timeBase[1].toInt()};
    while (!in.atEnd()) {
        bool ok = false;
        const long long pts = in.readLine().trimmed().section(',', 0, 0).toLongLong(&ok);
        if (ok)
            times.append(av_rescale_q(pts, base, AVRational {1, 1000}));
    }
    return times;
}

int frameShownAt(const QVector<long long> &timesMs, long long t)
{
    return std::max(0, int(std::upper_bound(timesMs.begin(), timesMs.end(), t) - timesMs.begin()) - 1);
}

QVector<long long> shifted(const QVector<long long> &timesMs, long long origin)
{
    QVector<long long> result(timesMs);
    std::for_each(result.begin(), result.end(), [origin](long long &t) { t = std::max(0LL, t - origin); });
    return result;
}

} // namespace ReaderTestKit
