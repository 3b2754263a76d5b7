#include "TagPoint.h"

#include "Common/TagMonitor.h"

namespace Veloran {

TagPoint::TagPoint(const char *name, QSharedPointer<TagMonitor> &monitor)
    : QObject(nullptr)
{
    hookByMonitor(name, monitor);
}

TagPoint::~TagPoint()
{
    if (QSharedPointer<TagMonitor> monitor = mMonitor.toStrongRef())
        monitor->removeTagPoint(this);
}

void TagPoint::hookByMonitor(const char *name, QSharedPointer<TagMonitor> &monitor)
{
    if (name)
        mName = QString::fromUtf8(name);
    mMonitor = monitor;
    // A monitor whose weak self was never set hands out a null pointer here; such a
    // point stays unregistered instead of crashing.
    if (monitor)
        monitor->addTagPoint(this);
}

QString TagPoint::name() const
{
    return mName;
}

} // namespace Veloran
