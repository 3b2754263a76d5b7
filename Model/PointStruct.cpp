#include "PointStruct.h"

namespace Veloran {

PointStruct PointStruct::fromMap(const QVariantMap &map)
{
    PointStruct point;
    point.id = map.value(QStringLiteral("id")).toString();
    point.originalPos = map.value(QStringLiteral("original_pos")).toFloat();
    point.value = map.value(QStringLiteral("value")).toFloat();
    return point;
}

} // namespace Veloran
