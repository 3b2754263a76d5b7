#include "FuzzTargets.h"

#include "VeloranBaseEntry.h"

#include <QtGlobal>

#include <cstdio>

extern "C" {
#include <libavutil/log.h>
}

namespace Veloran::Fuzz {

void silenceLogs()
{
    av_log_set_level(AV_LOG_QUIET);
    VeloranBaseEntry()->logger()->setSink([](const Record &) {});
    // Fatal messages still show: they explain the abort that follows.
    qInstallMessageHandler([](QtMsgType type, const QMessageLogContext &, const QString &message) {
        if (type == QtFatalMsg)
            std::fprintf(stderr, "%s\n", qPrintable(message));
    });
}

} // namespace Veloran::Fuzz
