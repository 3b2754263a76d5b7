#include "LogCapture.h"

#include "Model/JSBasicClip.h"

#include <QRandomGenerator>
#include <QtTest>

#include <algorithm>
#include <cmath>
#include <random>

using namespace Veloran;

namespace {

struct Point
{
    double pos;
    double speed;
};

qint64 lengthOf(qint64 rangeBegin, qint64 rangeLength, qint64 originalLength, const QList<Point> &points)
{
    QVariantList curve;
    for (const Point &point : points)
        curve << QVariantMap{{"original_pos", point.pos}, {"value", point.speed}};
    return JSBasicClip(NLMapNodePtr(new NLMapNode(QVariantMap{{"range_begin", rangeBegin}, {"range_length", rangeLength},
                                                              {"original_length", originalLength}, {"variableSpeed", curve}})))
        .timelineLength();
}

// Where the speed curve of a piece [p, q] from vp to vq passes 1: the Bézier d0, d0,
// d1, d1 of the weighted speeds (slow-downs count ten times) crosses zero at t, found
// by bisection, and the source position follows the Bézier p, m, m, q there.
double crossing(double vp, double vq, double p, double q)
{
    const double d0 = vp < 1 ? (vp - 1) * 10 : vp - 1, d1 = vq < 1 ? (vq - 1) * 10 : vq - 1;
    auto bezier = [](double t, double a, double b, double c, double d) {
        const double u = 1 - t;
        return u * u * u * a + 3 * u * u * t * b + 3 * u * t * t * c + t * t * t * d;
    };
    double lo = 0.0, hi = 1.0;
    for (int k = 0; k < 60; ++k)
        ((bezier((lo + hi) / 2, d0, d0, d1, d1) < 0) == (d0 < 0) ? lo : hi) = (lo + hi) / 2;
    return bezier(lo, p, (p + q) / 2, (p + q) / 2, q);
}

// Time spent on source [from, to] of a piece [p, q] that accelerates uniformly in time
// from vp to vq (so v² = vp² + (vq² - vp²)(x - p)/(q - p)), by Simpson's rule over 1/v.
double integratePiece(double vp, double vq, double p, double q, double from, double to)
{
    from = std::max(from, p);
    to = std::min(to, q);
    auto invSpeed = [&](double x) { return 1.0 / std::sqrt(std::max(vp * vp + (vq * vq - vp * vp) * (x - p) / (q - p), 1e-12)); };
    const double h = (to - from) / 2000;
    double sum = invSpeed(from) + invSpeed(to);
    for (int i = 1; i < 2000; ++i)
        sum += invSpeed(from + i * h) * (i % 2 ? 4.0 : 2.0);
    return to > from ? sum * h / 3.0 : 0.0;
}

} // namespace

class TstModelSpeed : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void lengthsOfSimpleCurves()
    {
        auto constant = [](const QVariantMap &map) { return JSBasicClip(NLMapNodePtr(new NLMapNode(map))).timelineLength(); };
        QCOMPARE(constant({{"range_length", 1000}, {"speed", 0.3}}), 3333);
        QCOMPARE(constant({{"range_length", 1001}}), 1001);
        QCOMPARE(constant({{"range_length", 900}, {"speed", 3}, {"variableSpeed", QVariantList()}}), 300); // empty curve
        QCOMPARE(lengthOf(0, 1000, 1000, {{0.5, 2.0}}), 0); // one point makes no segment
        // An uncut piece lasts exactly 2L / (s0 + s1).
        QCOMPARE(lengthOf(0, 7000, 7000, {{0.0, 0.2}, {1.0, 0.8}}), qint64(2.0f * 7000.0f / (0.2f + 0.8f)));
        // The order of the points does not matter.
        const qint64 sorted = lengthOf(100, 8000, 10000, {{0.0, 0.5}, {0.3, 2.0}, {0.7, 1.0}, {1.0, 3.0}});
        QVERIFY(sorted > 0);
        QCOMPARE(lengthOf(100, 8000, 10000, {{0.7, 1.0}, {1.0, 3.0}, {0.0, 0.5}, {0.3, 2.0}}), sorted);
        QCOMPARE(lengthOf(0, 1000, 10000, {{0.5, 1.0}, {1.0, 2.0}}), 0); // a span outside every segment
    }

    void variableLengthMatchesNumericIntegration()
    {
        // Slow-downs weigh more: the crossing of normal speed leans towards the slow end.
        QVERIFY(JSBasicClip().calPrevToIntersectDesireLength(0.5f, 2.0f, 0.0f, 1000.0f) > 600.0f);
        QRandomGenerator random(99);
        for (int run = 0; run < 200; ++run) {
            const qint64 original = 10000 + random.bounded(90000);
            QList<Point> points;
            const int count = 2 + random.bounded(5);
            for (int i = 0; i < count; ++i)
                points << Point{i == 0 ? 0.0 : i == count - 1 ? 1.0 : random.generateDouble(), 0.2 + random.generateDouble() * 3.8};
            const qint64 begin = random.bounded(int(original / 2));
            const qint64 length = 1 + random.bounded(int(original - begin));

            QList<Point> ordered = points;
            std::sort(ordered.begin(), ordered.end(), [](const Point &l, const Point &r) { return l.pos < r.pos; });
            std::shuffle(points.begin(), points.end(), std::mt19937(run));
            double expected = 0.0;
            for (int i = 0; i + 1 < ordered.size(); ++i) {
                // Single precision, as the clip stores its curve.
                const double p = float(ordered[i].pos) * float(original), q = float(ordered[i + 1].pos) * float(original);
                const double vp = float(ordered[i].speed), vq = float(ordered[i + 1].speed);
                if ((vp < 1 && 1 < vq) || (vp > 1 && 1 > vq)) {
                    const double x = crossing(vp, vq, p, q);
                    expected += integratePiece(vp, 1.0, p, x, begin, begin + length) + integratePiece(1.0, vq, x, q, begin, begin + length);
                } else {
                    expected += integratePiece(vp, vq, p, q, begin, begin + length);
                }
            }
            const qint64 actual = lengthOf(begin, length, original, points);
            QVERIFY2(std::fabs(double(actual) - expected) <= 2.0 + 1e-4 * expected,
                     qPrintable(QStringLiteral("run %1: %2 vs %3").arg(run).arg(actual).arg(expected)));
        }
    }

    void cubicSolverFindsTheRootInTheUnitRange()
    {
        // The cases at the edges of the discriminant method's branches.
        JSBasicClip clip;
        LogCapture capture;
        QList<double> roots{42.0};
        // (t - 2)(t - 3)(t - 4): no root in [0, 1]; roots are appended to the list.
        QCOMPARE(clip.calculateEquation(1.0, -9.0, 26.0, -24.0, roots), 0.0f);
        QVERIFY(capture.hasMessage("error"));
        QVERIFY(roots.size() == 4 && roots.first() == 42.0);
        capture.clear();
        QCOMPARE(clip.calculateEquation(1.0, -1.5, 0.75, -0.125, roots), 0.5f);   // (t - 0.5)³
        QCOMPARE(clip.calculateEquation(1.0, -2.5, 1.0625, -0.125, roots), 0.25f); // (t - 0.25)²(t - 2)
        QVERIFY(std::fabs(clip.calculateEquation(1.0, -1.5, -1.5, 1.0, roots) - 0.5f) < 1e-6f); // (t - 0.5)(t - 2)(t + 1)
        QVERIFY(!capture.hasMessage("error"));
        // (t - 3)((t - 0.5)² + 0.01²): a near-double complex pair stands in with its real part.
        QVERIFY(std::fabs(clip.calculateEquation(1.0, -4.0, 3.2501, -0.7503, roots) - 0.5f) < 1e-6f);
        // (t - 3)((t - 0.5)² + 0.5²): a wide pair is not reported.
        QCOMPARE(clip.calculateEquation(1.0, -4.0, 3.5, -1.5, roots), 0.0f);
        QVERIFY(capture.hasMessage("error"));
    }
};

QTEST_GUILESS_MAIN(TstModelSpeed)
#include "tst_model_speed.moc"
