#pragma once

#include <QImage>
#include <QMap>

// Thumbnails in a grid, in time order, each captioned with its time in seconds.
QImage makeContactSheet(const QMap<qint64, QImage> &thumbnailsByTime, int columns);
