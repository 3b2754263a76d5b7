#pragma once

#include "vrfetcher_export.h"

#include <cstdint>

/// \file
/// FFmpeg custom I/O over a QFile (the opaque pointer), for media stored in Qt
/// resources. Both return -1 on any failure, including a null opaque pointer.
/// They run on the thread that drives the FFmpeg context using them.
namespace Veloran {

/// Reads up to `size` bytes; end of file ends the stream with -1 as errors do.
VRFETCHER_EXPORT int qrc_read_packet(void *opaque, uint8_t *buf, int size);

/// Seeks for SEEK_SET, SEEK_CUR and SEEK_END and returns the new position.
/// AVSEEK_SIZE and AVSEEK_FORCE are refused, so FFmpeg never learns the size here.
VRFETCHER_EXPORT int64_t qrc_seek(void *opaque, int64_t offset, int whence);

} // namespace Veloran
