#pragma once

#include <QString>
#include <QVector>

// Order statistics of a set of measurements (nearest rank).
class Percentiles
{
public:
    explicit Percentiles(QVector<double> values);

    bool isEmpty() const { return mSorted.isEmpty(); }
    // The value below which `percent` of the measurements lie; 0 when empty.
    double at(double percent) const;
    double median() const { return at(50); }
    double max() const { return mSorted.isEmpty() ? 0 : mSorted.last(); }
    double sum() const;
    // "median=… p95=… max=…" with one decimal, in the measurements' unit.
    QString summary() const;

private:
    QVector<double> mSorted;
};
