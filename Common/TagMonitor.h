#pragma once

#include "vrfetcher_export.h"

#include <QList>
#include <QObject>
#include <QSharedPointer>
#include <QWeakPointer>

namespace Veloran {

class TagPoint;

/// Leak detector for objects that should die together with an owner. The owner keeps the
/// monitor in a QSharedPointer, hands every watched object a tag point made here, and
/// calls assertEmpty() when all of them should be gone: each tag still alive is logged.
/// A monitor and its tag points belong to one thread; nothing here locks.
class VRFETCHER_EXPORT TagMonitor : public QObject
{
    Q_OBJECT
public:
    /// An empty monitor; call setWeakSelf() once it is held by a QSharedPointer.
    explicit TagMonitor(QObject *parent = nullptr);
    /// Tag points that outlive the monitor later skip their removal.
    ~TagMonitor() override;

    /// Must be called once, right after the monitor is put into `self`, before any tag
    /// point is made: tag points keep only a weak reference to the monitor.
    void setWeakSelf(QSharedPointer<TagMonitor> &self);

    /// A new tag point registered with this monitor; `name` may be null (empty name).
    /// Requires setWeakSelf() first: otherwise the point has no monitor to register with.
    QSharedPointer<TagPoint> makeTagPoint(const char *name);

    /// Appends `point` to the living points; null is ignored, duplicates are not checked.
    /// Called by TagPoint when it registers.
    void addTagPoint(TagPoint *point);
    /// Removes the first entry equal to `point`, if any; null is ignored.
    /// Called by TagPoint when it is destroyed.
    void removeTagPoint(TagPoint *point);

    /// Logs "tag monitor found: <name>" for every living tag point, oldest first.
    /// Reports only: nothing is removed.
    void assertEmpty();

private:
    QList<TagPoint *> mPoints; // not owned
    QWeakPointer<TagMonitor> mWeakSelf;
};

} // namespace Veloran
