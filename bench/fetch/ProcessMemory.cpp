#include "ProcessMemory.h"

#include <QFile>

namespace {

long statusFieldKb(const QByteArray &field)
{
    QFile status(QStringLiteral("/proc/self/status"));
    if (!status.open(QIODevice::ReadOnly))
        return -1;
    const QList<QByteArray> lines = status.readAll().split('\n');
    for (const QByteArray &line : lines) {
        if (line.startsWith(field)) {
            const QList<QByteArray> parts = line.mid(field.size()).simplified().split(' ');
            bool ok = false;
            const long kb = parts.value(0).toLong(&ok);
            return ok ? kb : -1;
        }
    }
    return -1;
}

} // namespace

namespace ProcessMemory {

long residentKb()
{
    return statusFieldKb("VmRSS:");
}

long peakResidentKb()
{
    return statusFieldKb("VmHWM:");
}

} // namespace ProcessMemory
