#pragma once

#include "vrfetcher_export.h"

#include <QString>
#include <QVariantMap>

namespace Veloran {

/// One point of a clip's speed curve (a plain value).
struct VRFETCHER_EXPORT PointStruct
{
    QString id;               ///< the point's "id"
    float originalPos = 0.0f; ///< fraction of the source length, 0 at its start, 1 at its end
    float value = 0.0f;       ///< speed at that point, 1 is normal speed

    /// Reads "id", "original_pos" and "value"; absent entries give "" and 0.
    static PointStruct fromMap(const QVariantMap &map);
};

} // namespace Veloran
