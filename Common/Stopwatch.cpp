#include "Stopwatch.h"

#include <QDebug>

namespace Veloran {

Stopwatch::Stopwatch(const QString &name)
    : mStart(std::chrono::steady_clock::now())
    , mName(name)
{
}

Stopwatch::~Stopwatch()
{
    const long long elapsed =
        std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::steady_clock::now() - mStart).count();
    if (!mName.isEmpty())
        qDebug() << mName << " cost :" << roundedMicroseconds(elapsed) << "(ns)";
}

long long Stopwatch::roundedMicroseconds(long long elapsedNs)
{
    return elapsedNs / 1000 + (((elapsedNs / 100) % 10) >= 5 ? 1 : 0);
}

} // namespace Veloran
