#include "Percentiles.h"

#include <algorithm>
#include <cmath>
#include <numeric>

Percentiles::Percentiles(QVector<double> values)
    : mSorted(std::move(values))
{
    std::sort(mSorted.begin(), mSorted.end());
}

double Percentiles::at(double percent) const
{
    if (mSorted.isEmpty())
        return 0;
    const int rank = int(std::ceil(percent / 100.0 * mSorted.size()));
    return mSorted[std::clamp(rank - 1, 0, int(mSorted.size()) - 1)];
}

double Percentiles::sum() const
{
    return std::accumulate(mSorted.begin(), mSorted.end(), 0.0);
}

QString Percentiles::summary() const
{
    return QStringLiteral("median=%1 p95=%2 max=%3")
        .arg(median(), 0, 'f', 1)
        .arg(at(95), 0, 'f', 1)
        .arg(max(), 0, 'f', 1);
}
