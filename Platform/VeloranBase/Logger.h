#pragma once

#include "Record.h"
#include "vrbase_export.h"

#include <functional>
#include <mutex>

namespace Veloran {

/// Takes finished records. By default each becomes one line on stderr; a host
/// (or a test) may install its own sink. Thread-safe: pickers log from pool threads.
/// (A standard mutex rather than QMutex, so that ThreadSanitizer sees the locking.)
class VRBASE_EXPORT Logger
{
public:
    /// Receives every finished record, called under the logger's lock: a sink must
    /// not log through this logger itself.
    using Sink = std::function<void(const Record &)>;

    /// Hands `record` to the sink, or to stderr when none is installed.
    void write(const Record &record);

    /// Replaces the sink and returns the previous one; an empty sink restores stderr.
    Sink setSink(Sink sink);

    /// Writes "[<source path>:<line>] <text>" as one line to stderr.
    static void writeToStderr(const Record &record);

private:
    std::mutex mMutex;
    Sink mSink;
};

} // namespace Veloran
