#pragma once

// Resident memory of this process, as the kernel reports it in /proc/self/status.
namespace ProcessMemory {

// Current resident set size in KiB (VmRSS); -1 when it cannot be read.
long residentKb();
// Highest resident set size so far in KiB (VmHWM); -1 when it cannot be read.
long peakResidentKb();

} // namespace ProcessMemory
