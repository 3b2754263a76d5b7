#include "WaveformImage.h"

#include <QPainter>

QImage makeWaveformImage(const QVector<uint8_t> &peaks, const QSize &size)
{
    if (peaks.isEmpty() || size.isEmpty())
        return QImage();
    QImage image(size, QImage::Format_RGB32);
    image.fill(QColor(20, 24, 32));
    QPainter painter(&image);
    const double centre = size.height() / 2.0;
    painter.setPen(QColor(60, 70, 90));
    painter.drawLine(QPointF(0, centre), QPointF(size.width(), centre));

    const double barWidth = double(size.width()) / peaks.size();
    const QColor bar(90, 200, 255);
    for (int i = 0; i < peaks.size(); ++i) {
        const double half = peaks[i] / 255.0 * (size.height() / 2.0 - 2);
        painter.fillRect(QRectF(i * barWidth, centre - half, qMax(1.0, barWidth - 0.5), 2 * half + 1), bar);
    }
    return image;
}
