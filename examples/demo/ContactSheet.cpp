#include "ContactSheet.h"

#include <QPainter>

namespace {
constexpr int kGap = 8;
constexpr int kCaption = 22;
} // namespace

QImage makeContactSheet(const QMap<qint64, QImage> &thumbnailsByTime, int columns)
{
    if (thumbnailsByTime.isEmpty() || columns < 1)
        return QImage();
    QSize cell(1, 1);
    for (const QImage &image : thumbnailsByTime)
        cell = cell.expandedTo(image.size());
    const int count = thumbnailsByTime.size();
    const int cols = qMin(columns, count);
    const int rows = (count + cols - 1) / cols;
    QImage sheet(kGap + cols * (cell.width() + kGap), kGap + rows * (cell.height() + kCaption + kGap),
                 QImage::Format_RGB32);
    sheet.fill(QColor(32, 32, 36));

    QPainter painter(&sheet);
    QFont font = painter.font();
    font.setPixelSize(14);
    painter.setFont(font);
    int index = 0;
    for (auto it = thumbnailsByTime.cbegin(); it != thumbnailsByTime.cend(); ++it, ++index) {
        const QPoint origin(kGap + (index % cols) * (cell.width() + kGap),
                            kGap + (index / cols) * (cell.height() + kCaption + kGap));
        if (it.value().isNull()) {
            painter.fillRect(QRect(origin, cell), QColor(90, 20, 20)); // the frame could not be read
        } else {
            painter.drawImage(origin, it.value());
        }
        painter.setPen(QColor(230, 230, 230));
        painter.drawText(QRect(origin.x(), origin.y() + cell.height(), cell.width(), kCaption),
                         Qt::AlignCenter, QStringLiteral("%1 s").arg(it.key() / 1000.0, 0, 'f', 2));
    }
    return sheet;
}
