#pragma once

#include "FFmpegJoint.h"

#include <QString>
#include <QVector>

// Helpers for checking decoded frames of the generated readers-* media.
namespace ReaderTestKit {

// The number burned into a test frame as ten stripes, bit 0 at the left, read from the first component
// (luma or red) of 8 to 16 bits at any scale; -1 for frames it cannot read.
int frameNumber(const AVFrame *frame);

// Frame times in ms from an ffprobe list (time base on the first line, then one timestamp a line); empty if unreadable.
QVector<long long> frameTimesMs(const QString &listName);

// The index of the frame on screen at t: the last starting at or before t, else the first.
int frameShownAt(const QVector<long long> &timesMs, long long t);

// Each time shifted back by origin and clamped at 0.
QVector<long long> shifted(const QVector<long long> &timesMs, long long origin);

} // namespace ReaderTestKit
