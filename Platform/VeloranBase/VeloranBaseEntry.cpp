#include "VeloranBaseEntry.h"

#include <QThread>

namespace Veloran {

int VeloranBase::defaultWorkGateSize()
{
    return qMax(2, QThread::idealThreadCount());
}

VeloranBase::VeloranBase()
    : mWorkGate(defaultWorkGateSize())
{
}

VeloranBase *VeloranBaseEntry()
{
    static VeloranBase entry;
    return &entry;
}

} // namespace Veloran
