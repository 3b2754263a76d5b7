#include "TagMonitor.h"

#include "Common/TagPoint.h"

#include <QDebug>

namespace Veloran {

TagMonitor::TagMonitor(QObject *parent)
    : QObject(parent)
{
}

// Tag points that outlive the monitor find their weak reference empty and leave it alone.
TagMonitor::~TagMonitor() = default;

void TagMonitor::setWeakSelf(QSharedPointer<TagMonitor> &self)
{
    mWeakSelf = self;
}

QSharedPointer<TagPoint> TagMonitor::makeTagPoint(const char *name)
{
    QSharedPointer<TagMonitor> self = mWeakSelf.toStrongRef();
    return QSharedPointer<TagPoint>::create(name, self);
}

void TagMonitor::addTagPoint(TagPoint *point)
{
    if (point)
        mPoints.append(point);
}

void TagMonitor::removeTagPoint(TagPoint *point)
{
    if (point)
        mPoints.removeOne(point);
}

void TagMonitor::assertEmpty()
{
    for (const TagPoint *point : qAsConst(mPoints))
        qDebug().noquote() << QStringLiteral("tag monitor found: ") + point->name();
}

} // namespace Veloran
