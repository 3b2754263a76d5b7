#include "PropertyMap.h"

#include <QMutexLocker>

namespace Veloran {

QVariant PropertyMap::value(const QString &key) const
{
    QMutexLocker lock(&mMutex);
    return mValues.value(key);
}

void PropertyMap::setValue(const QString &key, const QVariant &value)
{
    QMutexLocker lock(&mMutex);
    mValues.insert(key, value);
}

void PropertyMap::remove(const QString &key)
{
    QMutexLocker lock(&mMutex);
    mValues.remove(key);
}

QMap<QString, QVariant> PropertyMap::snapshot() const
{
    QMutexLocker lock(&mMutex);
    return mValues;
}

} // namespace Veloran
