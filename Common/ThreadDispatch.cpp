#include "ThreadDispatch.h"

#include <QCoreApplication>
#include <QThread>
#include <QTimer>

#include <atomic>

namespace Veloran {

namespace {

// Qt's event queue already orders everything done before a dispatch before the
// function runs, but with a Qt that was not built for ThreadSanitizer that order is
// invisible to it. This release/acquire pair states the same order where it can see
// it (a static, so no thread ever writes it non-atomically).
std::atomic<quint64> gHandOver{0};

} // namespace

void dispatchToThread(QThread *thread, std::function<void()> fn)
{
    auto *timer = new QTimer;
    timer->moveToThread(thread);
    timer->setSingleShot(true);
    QObject::connect(timer, &QTimer::timeout, [fn = std::move(fn), timer]() {
        gHandOver.load(std::memory_order_acquire);
        fn();
        timer->deleteLater();
    });
    gHandOver.fetch_add(1, std::memory_order_acq_rel);
    QMetaObject::invokeMethod(timer, "start", Qt::QueuedConnection, Q_ARG(int, 0));
}

void dispatchToMainThread(std::function<void()> fn)
{
    dispatchToThread(QCoreApplication::instance()->thread(), std::move(fn));
}

void rangeSleep(int ms, int limit)
{
    const int d = ms - 10;
    QThread::msleep((d >= 1 && d < limit) ? static_cast<unsigned long>(d) : 1UL);
}

} // namespace Veloran
