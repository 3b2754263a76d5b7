#pragma once

#include <QImage>
#include <QtGlobal>

// How far a picture is from a reference, channel by channel in RGB: the mean absolute
// difference, and the share of pixels where some channel is off by more than
// `tolerance`. Pictures of different sizes (or a null one) are as far apart as can be.
struct ImageDifference
{
    double mean = 255;
    double share = 1;

    static ImageDifference of(const QImage &image, const QImage &reference, int tolerance)
    {
        if (image.isNull() || image.size() != reference.size())
            return {};
        const QImage a = image.convertToFormat(QImage::Format_RGB888);
        const QImage b = reference.convertToFormat(QImage::Format_RGB888);
        qint64 sum = 0, off = 0;
        for (int row = 0; row < a.height(); ++row) {
            for (int col = 0; col < a.width() * 3; col += 3) {
                int worst = 0;
                for (int c = 0; c < 3; ++c) {
                    const int d = qAbs(a.constScanLine(row)[col + c] - b.constScanLine(row)[col + c]);
                    sum += d;
                    worst = qMax(worst, d);
                }
                off += worst > tolerance;
            }
        }
        const double pixels = double(a.width()) * a.height();
        return {sum / (3 * pixels), off / pixels};
    }
};
