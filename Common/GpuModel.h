#pragma once

#include "vrfetcher_export.h"

#include <QList>
#include <QString>
#include <QVariantMap>

namespace Veloran {

// Known GPU models, each a record with at least a "name". This build knows none:
// hardware decoding is not available on this platform.
class VRFETCHER_EXPORT GpuModel
{
public:
    static QList<QVariantMap> gpuModelNameList();
    static QList<QVariantMap> getSpecifiedGpuModelList(const QString &vendor);
};

} // namespace Veloran
