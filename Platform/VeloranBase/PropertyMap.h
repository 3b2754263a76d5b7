#pragma once

#include "vrbase_export.h"

#include <QMap>
#include <QString>
#include <QVariant>

#include <mutex>

namespace Veloran {

/// Process-wide settings shared by the editor's libraries (for example
/// "kVob_DeMux_Enabled"). Readers on pool threads and a writer on the main thread
/// may meet, so every access takes the lock; an absent key reads as an invalid value.
class VRBASE_EXPORT PropertyMap
{
public:
    QVariant value(const QString &key) const;                 ///< invalid when absent
    void setValue(const QString &key, const QVariant &value); ///< adds or replaces
    void remove(const QString &key);                          ///< absent keys are ignored
    QMap<QString, QVariant> snapshot() const;                 ///< a copy of every setting

private:
    mutable std::mutex mMutex; // visible to ThreadSanitizer, unlike QMutex
    QMap<QString, QVariant> mValues;
};

} // namespace Veloran
