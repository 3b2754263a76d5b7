#include "GpuModel.h"

namespace Veloran {

QList<QVariantMap> GpuModel::gpuModelNameList()
{
    return {};
}

QList<QVariantMap> GpuModel::getSpecifiedGpuModelList(const QString &)
{
    return {};
}

} // namespace Veloran
