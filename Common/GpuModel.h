#pragma once

#include "vrfetcher_export.h"

#include <QList>
#include <QString>
#include <QVariantMap>

namespace Veloran {

/// Known GPU models, each a record with at least a "name".
///
/// This build knows none: hardware decoding is not available on this platform.
/// Stateless; safe from any thread.
class VRFETCHER_EXPORT GpuModel
{
public:
    /// All known GPU model records; always empty in this build.
    static QList<QVariantMap> gpuModelNameList();
    /// The known models of `vendor` (such as "NVIDIA" or "AMD"); always empty in this build.
    static QList<QVariantMap> getSpecifiedGpuModelList(const QString &vendor);
};

} // namespace Veloran
