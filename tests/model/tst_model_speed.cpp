#include "LogCapture.h"

#include "Model/JSBasicClip.h"
#include "Model/PointStruct.h"

#include <QRandomGenerator>
#include <QtTest>

#include <algorithm>
#include <cmath>

using namespace Veloran;

namespace {

struct Point
{
    double pos;
    double speed;
};

NLMapNodePtr clipNode(qint64 rangeBegin, qint64 rangeLength, qint64 originalLength, const QList<Point> &points)
{
    QVariantList curve;
    int n = 0;
    for (const Point &point : points)
        curve << QVariantMap{{"id", QStringLiteral("p%1").arg(n++)}, {"original_pos", point.pos}, {"value", point.speed}};
    const QVariantMap map{{"id", "clip"}, {"range_begin", rangeBegin}, {"range_length", rangeLength},
                          {"original_length", originalLength}, {"variableSpeed", curve}};
    return NLMapNodePtr(new NLMapNode(map));
}

double cubic(double a, double b, double c, double d, double t)
{
    return ((a * t + b) * t + c) * t + d;
}

// Every root in [0, 1] by dense sampling and bisection of sign changes.
QList<double> bisectionRoots(double a, double b, double c, double d)
{
    QList<double> roots;
    const int samples = 4000;
    double previousT = 0.0;
    double previous = cubic(a, b, c, d, 0.0);
    if (previous == 0.0)
        roots << 0.0;
    for (int i = 1; i <= samples; ++i) {
        const double t = double(i) / samples;
        const double value = cubic(a, b, c, d, t);
        if (value == 0.0) {
            roots << t;
        } else if ((previous < 0.0) != (value < 0.0) && previous != 0.0) {
            double lo = previousT, hi = t;
            for (int k = 0; k < 80; ++k) {
                const double mid = (lo + hi) / 2.0;
                if ((cubic(a, b, c, d, mid) < 0.0) == (cubic(a, b, c, d, lo) < 0.0))
                    lo = mid;
                else
                    hi = mid;
            }
            roots << (lo + hi) / 2.0;
        }
        previousT = t;
        previous = value;
    }
    return roots;
}

// Time spent on source [from, to] of a piece [p, q] that accelerates uniformly in
// time from speed vp to vq, by Simpson's rule over dt/dx = 1 / v(x), where the
// kinematic relation v² = vp² + 2·acc·(x - p) gives the speed at a position.
double integratePiece(double vp, double vq, double p, double q, double from, double to)
{
    from = std::max(from, p);
    to = std::min(to, q);
    if (!(to > from))
        return 0.0;
    const double acc2 = (vq * vq - vp * vp) / (q - p); // 2·acc
    auto invSpeed = [&](double x) { return 1.0 / std::sqrt(std::max(vp * vp + acc2 * (x - p), 1e-12)); };
    const int steps = 2000;
    const double h = (to - from) / steps;
    double sum = invSpeed(from) + invSpeed(to);
    for (int i = 1; i < steps; ++i)
        sum += invSpeed(from + i * h) * (i % 2 ? 4.0 : 2.0);
    return sum * h / 3.0;
}

} // namespace

class TstModelSpeed : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void constantSpeed()
    {
        QCOMPARE(JSBasicClip(NLMapNodePtr(new NLMapNode(QVariantMap{{"range_length", 1000}, {"speed", 2}}))).timelineLength(), 500);
        QCOMPARE(JSBasicClip(NLMapNodePtr(new NLMapNode(QVariantMap{{"range_length", 1000}, {"speed", 0.3}}))).timelineLength(), 3333);
        QCOMPARE(JSBasicClip(NLMapNodePtr(new NLMapNode(QVariantMap{{"range_length", 1001}}))).timelineLength(), 1001);
        // An empty curve takes the constant path.
        const QVariantMap emptyCurve{{"id", "c"}, {"range_length", 900}, {"speed", 3}, {"variableSpeed", QVariantList()}};
        QCOMPARE(JSBasicClip(NLMapNodePtr(new NLMapNode(emptyCurve))).timelineLength(), 300);
    }

    void curveEdgeCases()
    {
        // One point makes no segment.
        QCOMPARE(JSBasicClip(clipNode(0, 1000, 1000, {{0.5, 2.0}})).timelineLength(), 0);
        // Two points at speed 2 over the whole source.
        QCOMPARE(JSBasicClip(clipNode(0, 1001, 1001, {{0.0, 2.0}, {1.0, 2.0}})).timelineLength(), 500);
        // An uncut piece lasts exactly 2L / (s0 + s1).
        QCOMPARE(JSBasicClip(clipNode(0, 1000, 1000, {{0.0, 1.5}, {1.0, 3.0}})).timelineLength(),
                 qint64(2.0f * 1000.0f / (1.5f + 3.0f)));
        QCOMPARE(JSBasicClip(clipNode(0, 7000, 7000, {{0.0, 0.2}, {1.0, 0.8}})).timelineLength(),
                 qint64(2.0f * 7000.0f / (0.2f + 0.8f)));
        // Order of the points does not matter.
        const QList<Point> sorted{{0.0, 0.5}, {0.3, 2.0}, {0.7, 1.0}, {1.0, 3.0}};
        const QList<Point> shuffled{{0.7, 1.0}, {1.0, 3.0}, {0.0, 0.5}, {0.3, 2.0}};
        const qint64 expected = JSBasicClip(clipNode(100, 8000, 10000, sorted)).timelineLength();
        QVERIFY(expected > 0);
        QCOMPARE(JSBasicClip(clipNode(100, 8000, 10000, shuffled)).timelineLength(), expected);
        // A span outside every segment takes no time.
        QCOMPARE(JSBasicClip(clipNode(0, 1000, 10000, {{0.5, 1.0}, {1.0, 2.0}})).timelineLength(), 0);
    }

    void segmentThroughNormalSpeedIsSplit()
    {
        JSBasicClip clip;
        // Curve values: 0.5 -> (0.5 - 1)·10 = -5, 2 -> 1; the curve -5 + 18t² - 12t³.
        const QList<double> tRoots = bisectionRoots(-12.0, 18.0, 0.0, -5.0);
        QCOMPARE(tRoots.size(), 1);
        const double t = tRoots.first();
        const double p = 0.0, q = 1000.0, m = 500.0;
        const double expectedX = std::pow(1 - t, 3) * p + 3 * std::pow(1 - t, 2) * t * m + 3 * (1 - t) * t * t * m + std::pow(t, 3) * q;
        const float X = clip.calPrevToIntersectDesireLength(0.5f, 2.0f, 0.0f, 1000.0f);
        QVERIFY2(std::fabs(X - expectedX) < 1e-3, qPrintable(QString::number(X)));
        // Without the factor 10 the crossing would sit in the middle.
        QVERIFY(X > 600.0f);
        // Falling through 1 mirrors it.
        const float Y = clip.calPrevToIntersectDesireLength(2.0f, 0.5f, 0.0f, 1000.0f);
        QVERIFY(std::fabs(Y - (1000.0 - expectedX)) < 1e-2);

        // The clip length is the two halves, each uncut: 2X/(0.5+1) + 2(L-X)/(1+2).
        const qint64 length = JSBasicClip(clipNode(0, 1000, 1000, {{0.0, 0.5}, {1.0, 2.0}})).timelineLength();
        const float halves = 2.0f * X / 1.5f + 2.0f * (1000.0f - X) / 3.0f;
        QCOMPARE(length, qint64(halves));
    }

    void speedAlongAPieceIsLinearInTime()
    {
        JSBasicClip clip;
        QCOMPARE(clip.calculateSpeed(0.5f, 2.0f, 100.0f, 300.0f, 100.0f), 0.5f);
        QCOMPARE(clip.calculateSpeed(0.5f, 2.0f, 100.0f, 300.0f, 300.0f), 2.0f);
        QCOMPARE(clip.calculateSpeed(0.5f, 2.0f, 100.0f, 300.0f, 50.0f), 0.5f);
        QCOMPARE(clip.calculateSpeed(1.5f, 1.5f, 0.0f, 10.0f, 4.0f), 1.5f);
        QRandomGenerator random(7);
        for (int i = 0; i < 500; ++i) {
            const double vp = 0.1 + random.generateDouble() * 4.0;
            const double vq = 0.1 + random.generateDouble() * 4.0;
            const double p = random.generateDouble() * 1000.0;
            const double q = p + 1.0 + random.generateDouble() * 1000.0;
            const double x = p + random.generateDouble() * (q - p);
            // Midway in time the speed is the mean of both ends.
            const double expected = std::sqrt(vp * vp + (vq * vq - vp * vp) * (x - p) / (q - p));
            const float speed = clip.calculateSpeed(float(vp), float(vq), float(p), float(q), float(x));
            QVERIFY2(std::fabs(speed - expected) < 1e-3 * expected, qPrintable(QStringLiteral("%1 vs %2").arg(speed).arg(expected)));
        }
    }

    void cubicSolverAgreesWithBisection()
    {
        JSBasicClip clip;
        QRandomGenerator random(20240611);
        for (int i = 0; i < 3000; ++i) {
            const double r = random.generateDouble();
            const double lead = (0.5 + random.generateDouble() * 4.5) * (random.bounded(2) ? 1 : -1);
            double b, c, d;
            if (i % 2) {
                // Three real roots, kept apart so the bisection sees every sign change.
                double r2, r3;
                do {
                    r2 = -3.0 + 6.0 * random.generateDouble();
                    r3 = -3.0 + 6.0 * random.generateDouble();
                } while (std::fabs(r2 - r) < 0.05 || std::fabs(r3 - r) < 0.05 || std::fabs(r2 - r3) < 0.05);
                b = -lead * (r + r2 + r3);
                c = lead * (r * r2 + r * r3 + r2 * r3);
                d = -lead * r * r2 * r3;
            } else {
                // One real root and a complex pair u ± iv.
                const double u = -3.0 + 6.0 * random.generateDouble();
                const double v = 0.2 + 2.0 * random.generateDouble();
                const double s = 2 * u, pr = u * u + v * v; // t² - s·t + pr
                b = lead * (-s - r);
                c = lead * (pr + r * s);
                d = -lead * r * pr;
            }
            QList<double> roots;
            const float found = clip.calculateEquation(lead, b, c, d, roots);
            QVERIFY(found >= 0.0f && found <= 1.0f);
            QVERIFY(!roots.isEmpty());
            const QList<double> expected = bisectionRoots(lead, b, c, d);
            QVERIFY(!expected.isEmpty());
            double nearest = 1e9;
            for (const double root : expected)
                nearest = std::min(nearest, std::fabs(root - found));
            QVERIFY2(nearest < 1e-4, qPrintable(QStringLiteral("case %1: %2").arg(i).arg(found)));
            // Every reported root is a root of the cubic.
            if (i % 2) {
                QCOMPARE(roots.size(), 3);
                for (const double root : roots)
                    QVERIFY(std::fabs(cubic(lead, b, c, d, root)) < 1e-6 * (1.0 + std::fabs(lead) * 30.0));
            }
        }
    }

    void cubicSolverSpecialCases()
    {
        JSBasicClip clip;
        LogCapture capture;
        QList<double> roots;
        // (t - 2)(t - 3)(t - 4): no root in [0, 1].
        QCOMPARE(clip.calculateEquation(1.0, -9.0, 26.0, -24.0, roots), 0.0f);
        QVERIFY(capture.hasMessage("error"));
        QCOMPARE(roots.size(), 3);
        std::sort(roots.begin(), roots.end());
        QVERIFY(std::fabs(roots.at(0) - 2.0) < 1e-9 && std::fabs(roots.at(2) - 4.0) < 1e-9);

        // Triple root (t - 0.5)³.
        roots.clear();
        capture.clear();
        QCOMPARE(clip.calculateEquation(1.0, -1.5, 0.75, -0.125, roots), 0.5f);
        QCOMPARE(roots.size(), 1);
        QVERIFY(!capture.hasMessage("error"));

        // Double root: (t - 0.25)²(t - 2) — roots listed as the single then the double.
        roots.clear();
        QCOMPARE(clip.calculateEquation(1.0, -2.5, 1.0625, -0.125, roots), 0.25f);
        QCOMPARE(roots.size(), 2);
        QVERIFY(std::fabs(roots.at(0) - 2.0) < 1e-9);

        // (t - 3)·((t - 0.5)² + 0.01²): the near-double complex pair stands in with its
        // real part, since the only real root lies outside [0, 1].
        roots.clear();
        const float nearDouble = clip.calculateEquation(1.0, -4.0, 3.2501, -0.7503, roots);
        QCOMPARE(roots.size(), 2);
        QVERIFY(std::fabs(roots.at(0) - 3.0) < 1e-9);
        QVERIFY(std::fabs(nearDouble - 0.5f) < 1e-6f);
        // A wide complex pair is not reported.
        roots.clear();
        capture.clear();
        QCOMPARE(clip.calculateEquation(1.0, -4.0, 3.5, -1.5, roots), 0.0f); // (t - 3)((t - 0.5)² + 0.5²)
        QCOMPARE(roots.size(), 1);
        QVERIFY(capture.hasMessage("error"));

        // Roots are appended to what the list already holds.
        QList<double> kept{42.0};
        clip.calculateEquation(1.0, -9.0, 26.0, -24.0, kept);
        QCOMPARE(kept.size(), 4);
        QCOMPARE(kept.first(), 42.0);
    }

    void variableLengthMatchesNumericIntegration()
    {
        JSBasicClip probe;
        QRandomGenerator random(99);
        for (int run = 0; run < 300; ++run) {
            const qint64 original = 10000 + random.bounded(90000);
            QList<Point> points;
            const int count = 2 + random.bounded(5);
            for (int i = 0; i < count; ++i)
                points << Point{i == 0 ? 0.0 : i == count - 1 ? 1.0 : random.generateDouble(),
                                0.2 + random.generateDouble() * 3.8};
            std::shuffle(points.begin(), points.end(), std::mt19937(run));
            const qint64 begin = random.bounded(int(original / 2));
            const qint64 length = 1 + random.bounded(int(original - begin));

            QList<Point> ordered = points;
            std::sort(ordered.begin(), ordered.end(), [](const Point &l, const Point &r) { return l.pos < r.pos; });
            double expected = 0.0;
            for (int i = 0; i + 1 < ordered.size(); ++i) {
                const double p = float(ordered[i].pos) * float(original);
                const double q = float(ordered[i + 1].pos) * float(original);
                const double vp = float(ordered[i].speed), vq = float(ordered[i + 1].speed);
                if ((vp < 1 && 1 < vq) || (vp > 1 && 1 > vq)) {
                    const double x = probe.calPrevToIntersectDesireLength(vp, vq, p, q);
                    expected += integratePiece(vp, 1.0, p, x, begin, begin + length);
                    expected += integratePiece(1.0, vq, x, q, begin, begin + length);
                } else {
                    expected += integratePiece(vp, vq, p, q, begin, begin + length);
                }
            }
            const qint64 actual = JSBasicClip(clipNode(begin, length, original, points)).timelineLength();
            QVERIFY2(std::fabs(double(actual) - expected) <= 2.0 + 1e-4 * expected,
                     qPrintable(QStringLiteral("run %1: %2 vs %3").arg(run).arg(actual).arg(expected)));
        }
    }

    void pointsReadFromMaps()
    {
        const PointStruct point = PointStruct::fromMap({{"id", "k"}, {"original_pos", 0.25}, {"value", "1.5"}});
        QCOMPARE(point.id, QStringLiteral("k"));
        QCOMPARE(point.originalPos, 0.25f);
        QCOMPARE(point.value, 1.5f);
        const PointStruct empty = PointStruct::fromMap({});
        QCOMPARE(empty.id, QString());
        QCOMPARE(empty.originalPos, 0.0f);
        QCOMPARE(empty.value, 0.0f);
    }
};

QTEST_GUILESS_MAIN(TstModelSpeed)
#include "tst_model_speed.moc"
