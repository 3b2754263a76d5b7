#pragma once

#include <QImage>
#include <QVector>

// Peak values (0..255, peak to peak) drawn as bars around a centre line, one bar per
// column group, across `size`.
QImage makeWaveformImage(const QVector<uint8_t> &peaks, const QSize &size);
