#include "TryThread.h"

namespace Veloran {

void TryThread::run()
{
    try {
        tryRun();
        finishedSuccess = true;
    } catch (...) {
        finishedSuccess = false;
        Q_EMIT exceptionThrowOut();
    }
}

} // namespace Veloran
