#pragma once

#include "Logger.h"
#include "PropertyMap.h"
#include "WorkGate.h"
#include "vrbase_export.h"

namespace Veloran {

/// The base library's entry object: the services other libraries of the editor share.
/// Each service is thread-safe on its own.
class VRBASE_EXPORT VeloranBase
{
public:
    Logger *logger() { return &mLogger; }              ///< where tagged log records go
    PropertyMap *properties() { return &mProperties; } ///< process-wide settings
    WorkGate *workGate() { return &mWorkGate; }        ///< process-wide bound on decoding workers

    /// The gate admits as many decoding workers as the machine has logical processors
    /// (at least two), which is more than any one picker pool runs: it only bites when
    /// several pools or processes-worth of work pile up.
    static int defaultWorkGateSize();

private:
    friend VRBASE_EXPORT VeloranBase *VeloranBaseEntry();
    VeloranBase();

    Logger mLogger;
    PropertyMap mProperties;
    WorkGate mWorkGate;
};

/// The process's one entry object. Created on first use (thread-safe), lives until
/// the process ends.
VRBASE_EXPORT VeloranBase *VeloranBaseEntry();

} // namespace Veloran

/// \def VR_LOG
/// Builds a Record for the current function, source file and line, and hands it to
/// the base library's logger when the statement ends:  VR_LOG << "text " << value;
#define VR_LOG ::Veloran::RecordSubmitter() = ::Veloran::Record(Q_FUNC_INFO, __FILE__, __LINE__)

namespace Veloran {
/// Hands the record of a VR_LOG statement to the logger; not for direct use.
struct RecordSubmitter
{
    /// Writes `record` to the entry object's logger.
    void operator=(const Record &record) const { VeloranBaseEntry()->logger()->write(record); }
};
} // namespace Veloran
