#pragma once

#include "FFmpegJoint.h"

#include <QString>
#include <QVector>

// Helpers for checking decoded frames of the generated readers-* media.
namespace ReaderTestKit {

// The frame number burned into a numbered test frame (ten stripes of a tenth of the
// width each, bit 0 at the left), read from the first component (luma or red) of
// a frame of 8 to 16 bits at any scale; -1 for frames it cannot read.
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
