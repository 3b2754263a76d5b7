#pragma once

#include "Model/PointStruct.h"

#include <QList>
#include <QtGlobal>

/// \file
/// Arithmetic of a clip's speed curve: where a segment passes normal speed, how fast
/// the clip plays at a source position, and how long a used source span lasts.
///
/// Between two speed points a piece of source [p, q] runs from speed vp to vq with the
/// speed changing linearly in timeline time (constant acceleration). Its duration is
/// therefore the length over the mean speed, 2(q - p) / (vp + vq), and at a source
/// position x the speed is sqrt(vp² + (vq² - vp²)(x - p) / (q - p)).
/// Pure functions: safe from any thread.
namespace Veloran {

/// A root of a·t³ + b·t² + c·t + d in [0, 1] found by the discriminant method; every
/// real root found is appended to `roots`. Without a root in [0, 1]: "error" on the
/// debug log and 0.
float solveCubicInUnitRange(double a, double b, double c, double d, QList<double> &roots);

/// Source position in [p, q] where the speed curve from vp to vq passes 1.
float normalSpeedCrossing(float vp, float vq, float p, float q);

/// Speed at source position `pos` of the piece [p, q] running from vp to vq; exactly
/// vp at p and vq at q.
float speedAtPosition(float vp, float vq, float p, float q, float pos);

/// Timeline time the piece [p, q] (speeds vp -> vq) spends inside [begin, end].
float pieceDuration(float vp, float vq, float p, float q, float begin, float end);

/// Timeline length of the source span [rangeBegin, rangeBegin + rangeLength] under the
/// curve through `points` (any order); fewer than two points give 0.
qint64 variableSpeedLength(QList<PointStruct> points, qint64 rangeBegin, qint64 rangeLength,
                           qint64 originalLength);

/// Truncation toward zero; values a 64-bit integer cannot hold (infinite or not a
/// number after a zero speed) give the lowest value instead of undefined behaviour.
qint64 truncateToInt64(double value);

} // namespace Veloran
