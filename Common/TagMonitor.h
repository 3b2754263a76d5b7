#pragma once

#include "vrfetcher_export.h"

#include <QList>
#include <QObject>
#include <QSharedPointer>
#include <QWeakPointer>

namespace Veloran {

class TagPoint;

// Leak detector for objects that should die together with an owner. The owner keeps the
// monitor in a QSharedPointer, hands every watched object a tag point made here, and
// calls assertEmpty() when all of them should be gone: each tag still alive is logged.
// A monitor and its tag points belong to one thread; nothing here locks.
class VRFETCHER_EXPORT TagMonitor : public QObject
{
    Q_OBJECT
public:
    explicit TagMonitor(QObject *parent = nullptr);
    ~TagMonitor() override;

    // Must be called once, right after the monitor is put into `self`, before any tag
    // point is made: tag points keep only a weak reference to the monitor.
    void setWeakSelf(QSharedPointer<TagMonitor> &self);

    // A new tag point registered with this monitor; `name` may be null (empty name).
    QSharedPointer<TagPoint> makeTagPoint(const char *name);

    void addTagPoint(TagPoint *point);
    void removeTagPoint(TagPoint *point);

    // Logs "tag monitor found: <name>" for every living tag point, oldest first.
    // Reports only: nothing is removed.
    void assertEmpty();

private:
    QList<TagPoint *> mPoints; // not owned
    QWeakPointer<TagMonitor> mWeakSelf;
};

} // namespace Veloran
