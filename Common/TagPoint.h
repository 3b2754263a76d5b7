#pragma once

#include "vrfetcher_export.h"

#include <QObject>
#include <QSharedPointer>
#include <QString>
#include <QWeakPointer>

namespace Veloran {

class TagMonitor;

/// A named marker held by a watched object. It registers with its monitor when made and
/// removes itself when destroyed, so whatever the monitor still lists has leaked. It holds
/// the monitor weakly: a tag point may outlive its monitor and then touches nothing.
class VRFETCHER_EXPORT TagPoint : public QObject
{
    Q_OBJECT
public:
    /// A parentless point named `name` and registered with `monitor` (see hookByMonitor()).
    /// Made and destroyed on the monitor's thread.
    TagPoint(const char *name, QSharedPointer<TagMonitor> &monitor);
    /// Unregisters from the monitor if it still exists.
    ~TagPoint() override;

    /// Names the point (UTF-8; null leaves the name empty) and registers it with `monitor`.
    /// A null monitor leaves the point unregistered.
    void hookByMonitor(const char *name, QSharedPointer<TagMonitor> &monitor);

    /// The name given when made (empty for a null name).
    QString name() const;

private:
    QWeakPointer<TagMonitor> mMonitor;
    QString mName;
};

} // namespace Veloran
