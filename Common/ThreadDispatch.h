#pragma once

#include "vrfetcher_export.h"

#include <functional>

class QThread;

/// \file
/// Running functions on other threads, and a bounded sleep.

namespace Veloran {

/// Runs `fn` once, later, in `thread`'s event loop; never blocks and never runs `fn`
/// inside the call, even when called from `thread` itself. The thread must run an
/// event loop, otherwise `fn` never runs. Callable from any thread. An empty `fn`
/// throws std::bad_function_call in `thread` when its turn comes.
VRFETCHER_EXPORT void dispatchToThread(QThread *thread, std::function<void()> fn);
/// dispatchToThread() to the application's thread; an application must exist.
VRFETCHER_EXPORT void dispatchToMainThread(std::function<void()> fn);

/// Sleeps ms - 10 milliseconds when that lies in [1, limit), else 1 millisecond.
VRFETCHER_EXPORT void rangeSleep(int ms, int limit);

} // namespace Veloran
