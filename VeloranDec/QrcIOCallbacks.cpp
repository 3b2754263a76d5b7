#include "QrcIOCallbacks.h"

#include <QFile>

#include <cstdio>

namespace Veloran {

int qrc_read_packet(void *opaque, uint8_t *buf, int size)
{
    if (!opaque)
        return -1;
    auto *file = static_cast<QFile *>(opaque);
    const long long count = file->read(reinterpret_cast<char *>(buf), size);
    return count > 0 ? static_cast<int>(count) : -1;
}

int64_t qrc_seek(void *opaque, int64_t offset, int whence)
{
    if (!opaque)
        return -1;
    auto *file = static_cast<QFile *>(opaque);
    long long target = 0;
    switch (whence) {
    case SEEK_SET:
        target = offset;
        break;
    case SEEK_CUR:
        target = offset + file->pos();
        break;
    case SEEK_END:
        target = offset + file->size();
        break;
    default:
        // AVSEEK_SIZE, AVSEEK_FORCE and anything else: FFmpeg copes without them.
        return -1;
    }
    if (!file->seek(target))
        return -1;
    return file->pos();
}

} // namespace Veloran
