#include "SpeedCurve.h"

#include <QDebug>

#include <algorithm>
#include <cmath>
#include <limits>

namespace Veloran {

namespace {

constexpr double kTolerance = 1e-06;

// Weight of a speed on the split curve: slow-downs count ten times as much as
// speed-ups, which moves the crossing towards the slow end.
double curveValue(double speed)
{
    const double value = speed - 1.0;
    return speed < 1.0 ? value * 10.0 : value;
}

bool passesNormalSpeed(float vp, float vq)
{
    return (vp < 1.0f && 1.0f < vq) || (vp > 1.0f && 1.0f > vq);
}

} // namespace

float solveCubicInUnitRange(double a, double b, double c, double d, QList<double> &roots)
{
    const double A = b * b - 3.0 * a * c;
    const double B = b * c - 9.0 * a * d;
    const double C = c * c - 3.0 * b * d;
    const double delta = B * B - 4.0 * A * C;

    QList<double> found;
    if (std::fabs(A) < kTolerance && std::fabs(B) < kTolerance) {
        found << -b / (3.0 * a);
    } else if (std::fabs(delta) < kTolerance) {
        const double K = B / A;
        found << -b / a + K << -K / 2.0;
    } else if (delta > kTolerance) {
        const double root = std::sqrt(delta);
        const double y1 = std::cbrt(A * b + 3.0 * a * (-B + root) / 2.0);
        const double y2 = std::cbrt(A * b + 3.0 * a * (-B - root) / 2.0);
        found << (-b - y1 - y2) / (3.0 * a);
        // A conjugate pair close to the real axis stands for a near-double root.
        const double imaginary = std::fabs((y1 - y2) * std::sqrt(3.0) / 2.0 / (3.0 * a));
        if (imaginary < 0.1)
            found << ((y1 + y2) / 2.0 - b) / (3.0 * a);
    } else {
        const double sqrtA = std::sqrt(A);
        // Rounding can push the cosine a hair outside [-1, 1].
        const double T = std::clamp((2.0 * A * b - 3.0 * a * B) / (2.0 * A * sqrtA), -1.0, 1.0);
        const double third = std::acos(T) / 3.0;
        found << (-b - 2.0 * sqrtA * std::cos(third)) / (3.0 * a)
              << (-b + sqrtA * (std::cos(third) + std::sqrt(3.0) * std::sin(third))) / (3.0 * a)
              << (-b + sqrtA * (std::cos(third) - std::sqrt(3.0) * std::sin(third))) / (3.0 * a);
    }

    roots << found;
    for (const double root : qAsConst(found)) {
        if (root >= 0.0 && root <= 1.0)
            return static_cast<float>(root);
    }
    qDebug() << "error";
    return 0.0f;
}

float normalSpeedCrossing(float vp, float vq, float p, float q)
{
    // The split curve is the cubic Bézier d0, d0, d1, d1 over t in [0, 1].
    const double d0 = curveValue(vp);
    const double d1 = curveValue(vq);
    QList<double> roots;
    const double t = solveCubicInUnitRange(2.0 * d0 - 2.0 * d1, 3.0 * d1 - 3.0 * d0, 0.0, d0, roots);

    // The source position follows the Bézier p, m, m, q with m the middle.
    const double m = (double(p) + double(q)) / 2.0;
    const double u = 1.0 - t;
    return static_cast<float>(std::pow(u, 3) * p + 3.0 * u * u * t * m + 3.0 * u * t * t * m
                              + std::pow(t, 3) * q);
}

float speedAtPosition(float vp, float vq, float p, float q, float pos)
{
    if (pos <= p)
        return vp;
    if (pos >= q)
        return vq;
    // Over the piece the clip accelerates uniformly: duration T = 2L / (vp + vq),
    // acceleration (vq - vp) / T. The time t at which the source reaches `pos` solves
    // ½·acc·t² + vp·t - (pos - p) = 0; the speed there is vp + acc·t.
    const double length = double(q) - double(p);
    const double duration = 2.0 * length / (double(vp) + double(vq));
    const double acc = (double(vq) - double(vp)) / duration;
    if (acc == 0.0 || !std::isfinite(acc))
        return vp;
    const double qa = 0.5 * acc;
    const double qb = vp;
    const double qc = -(double(pos) - double(p));
    const double discriminant = qb * qb - 4.0 * qa * qc;
    double t = 0.0;
    if (discriminant > 0.0) {
        t = (-qb + std::sqrt(discriminant)) / (2.0 * qa);
        if (t <= 0.0)
            t = (-qb - std::sqrt(discriminant)) / (2.0 * qa);
    }
    return static_cast<float>(vp + acc * t);
}

float pieceDuration(float vp, float vq, float p, float q, float begin, float end)
{
    const float cutStart = std::max(p, begin);
    const float cutEnd = std::min(q, end);
    if (!(cutEnd > cutStart))
        return 0.0f;
    // Speed is linear in time, so the mean speed over the cut is the mean of its ends.
    const float startSpeed = speedAtPosition(vp, vq, p, q, cutStart);
    const float endSpeed = speedAtPosition(vp, vq, p, q, cutEnd);
    return 2.0f * (cutEnd - cutStart) / (startSpeed + endSpeed);
}

qint64 variableSpeedLength(QList<PointStruct> points, qint64 rangeBegin, qint64 rangeLength,
                           qint64 originalLength)
{
    std::sort(points.begin(), points.end(),
              [](const PointStruct &l, const PointStruct &r) { return l.originalPos < r.originalPos; });

    const float begin = static_cast<float>(rangeBegin);
    const float end = static_cast<float>(rangeBegin + rangeLength);
    const float length = static_cast<float>(originalLength);
    float total = 0.0f;
    for (int i = 0; i + 1 < points.size(); ++i) {
        const float P = points.at(i).originalPos * length;
        const float Q = points.at(i + 1).originalPos * length;
        const float vp = points.at(i).value;
        const float vq = points.at(i + 1).value;
        if (Q < begin)
            continue;
        if (end < P)
            break;
        if (passesNormalSpeed(vp, vq)) {
            const float X = normalSpeedCrossing(vp, vq, P, Q);
            total += pieceDuration(vp, 1.0f, P, X, begin, end);
            total += pieceDuration(1.0f, vq, X, Q, begin, end);
        } else {
            total += pieceDuration(vp, vq, P, Q, begin, end);
        }
    }
    return truncateToInt64(total);
}

qint64 truncateToInt64(double value)
{
    constexpr double kLimit = 9223372036854775808.0; // 2^63
    if (!(value > -kLimit && value < kLimit))
        return std::numeric_limits<qint64>::min();
    return static_cast<qint64>(value);
}

} // namespace Veloran
