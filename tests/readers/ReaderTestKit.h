#pragma once

#include "FFmpegJoint.h"

#include <QString>
#include <QVector>

// Helpers for checking decoded frames of the generated readers-* media.
namespace ReaderTestKit {

// The frame number burned into a numbered test frame (ten stripes of 16 pixels, bit
// 0 at the left), read from the luma plane of a YUV frame; -1 when the frame is
// not in a planar YUV format or too small.
int frameNumber(const AVFrame *frame);

// Frame times in milliseconds from a list written by ffprobe (the time base on the
// first line, then one timestamp per line), rounded to the nearest millisecond;
// empty when the list cannot be read.
QVector<long long> frameTimesMs(const QString &listName);

// The index of the frame on screen at t: the last one starting at or before t, or
// the first when t lies before all of them.
int frameShownAt(const QVector<long long> &timesMs, long long t);

// Each time shifted back by origin and clamped at 0.
QVector<long long> shifted(const QVector<long long> &timesMs, long long origin);

} // namespace ReaderTestKit
