#pragma once

#include <QImage>
#include <QtGlobal>

#include <cstdlib>

// How far two pictures of the same size are apart: the mean absolute difference of
// the RGB channels, and the share of pixels where some channel differs by more
// than `tolerance` (conversions differ a little at sharp colour edges).
struct ImageDistance
{
    double meanDifference = 255.0;
    double outlierShare = 1.0;
};

inline ImageDistance imageDistance(const QImage &a, const QImage &b, int tolerance = 40)
{
    ImageDistance distance;
    if (a.isNull() || a.size() != b.size())
        return distance;
    const QImage x = a.convertToFormat(QImage::Format_RGB888);
    const QImage y = b.convertToFormat(QImage::Format_RGB888);
    qint64 sum = 0;
    qint64 outliers = 0;
    for (int row = 0; row < x.height(); ++row) {
        const uchar *p = x.constScanLine(row);
        const uchar *q = y.constScanLine(row);
        for (int col = 0; col < x.width(); ++col) {
            int worst = 0;
            for (int c = 0; c < 3; ++c) {
                const int d = std::abs(int(p[3 * col + c]) - int(q[3 * col + c]));
                sum += d;
                worst = qMax(worst, d);
            }
            outliers += worst > tolerance ? 1 : 0;
        }
    }
    const qint64 pixels = qint64(x.width()) * x.height();
    distance.meanDifference = double(sum) / (3.0 * pixels);
    distance.outlierShare = double(outliers) / pixels;
    return distance;
}
