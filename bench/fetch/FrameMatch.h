#pragma once

#include <QString>
#include <QTextStream>

// Tells which thumbnails show the exact frame. References are the frames before, at and
// after each target, decoded in full and scaled to thumbnail size: ref_KKKK.png with
// K = 3 * target + {0 before, 1 at, 2 after}. A thumbnail thumb_NNN.png counts as exact
// when its mean absolute difference to the frame at the target is within the tolerance
// and smaller than to both neighbours.
struct FrameMatchOptions
{
    QString referenceDir;
    QString thumbDir;
    int count = 0;
    double tolerance = 2.5; // mean absolute difference per channel, 0..255
    bool verbose = false; // one line per target
};

// Writes "exact=E of=N missing=M" (and the per-target lines when verbose); returns E.
int matchFrames(const FrameMatchOptions &options, QTextStream &out);

// Mean absolute difference per channel of two images, the first scaled to the second's
// size when they differ; -1 when either is null.
double meanAbsoluteDifference(const QImage &image, const QImage &reference);
