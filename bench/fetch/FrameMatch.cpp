#include "FrameMatch.h"

#include <QImage>

#include <cstdlib>

double meanAbsoluteDifference(const QImage &image, const QImage &reference)
{
    if (image.isNull() || reference.isNull())
        return -1.0;
    QImage a = image.convertToFormat(QImage::Format_RGB888);
    const QImage b = reference.convertToFormat(QImage::Format_RGB888);
    if (a.size() != b.size())
        a = a.scaled(b.size(), Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
    quint64 sum = 0;
    for (int y = 0; y < b.height(); ++y) {
        const uchar *pa = a.constScanLine(y);
        const uchar *pb = b.constScanLine(y);
        for (int x = 0; x < b.width() * 3; ++x)
            sum += quint64(std::abs(int(pa[x]) - int(pb[x])));
    }
    return double(sum) / (double(b.width()) * b.height() * 3);
}

int matchFrames(const FrameMatchOptions &options, QTextStream &out)
{
    int exact = 0;
    int missing = 0;
    double worstExact = 0.0;
    for (int i = 0; i < options.count; ++i) {
        const QImage thumb(QStringLiteral("%1/thumb_%2.png").arg(options.thumbDir).arg(i, 3, 10, QLatin1Char('0')));
        double d[3];
        for (int j = 0; j < 3; ++j) {
            const QImage ref(QStringLiteral("%1/ref_%2.png")
                                 .arg(options.referenceDir)
                                 .arg(3 * i + j, 4, 10, QLatin1Char('0')));
            d[j] = meanAbsoluteDifference(thumb, ref);
        }
        if (thumb.isNull())
            ++missing;
        const bool hit = d[1] >= 0.0 && d[1] <= options.tolerance && (d[0] < 0.0 || d[1] < d[0])
                         && (d[2] < 0.0 || d[1] < d[2]);
        if (hit) {
            ++exact;
            worstExact = std::max(worstExact, d[1]);
        }
        if (options.verbose)
            out << "target=" << i << " before=" << d[0] << " at=" << d[1] << " after=" << d[2]
                << (hit ? " exact" : " WRONG") << Qt::endl;
    }
    out << "exact=" << exact << " of=" << options.count << " missing=" << missing
        << " worst_exact_mad=" << worstExact << Qt::endl;
    return exact;
}
