#include "PropertyMap.h"

namespace Veloran {

QVariant PropertyMap::value(const QString &key) const
{
    std::lock_guard<std::mutex> lock(mMutex);
    return mValues.value(key);
}

void PropertyMap::setValue(const QString &key, const QVariant &value)
{
    std::lock_guard<std::mutex> lock(mMutex);
    mValues.insert(key, value);
}

void PropertyMap::remove(const QString &key)
{
    std::lock_guard<std::mutex> lock(mMutex);
    mValues.remove(key);
}

QMap<QString, QVariant> PropertyMap::snapshot() const
{
    std::lock_guard<std::mutex> lock(mMutex);
    return mValues;
}

} // namespace Veloran
