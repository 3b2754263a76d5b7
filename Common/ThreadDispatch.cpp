#include "ThreadDispatch.h"

#include <QCoreApplication>
#include <QThread>
#include <QTimer>

namespace Veloran {

void dispatchToThread(QThread *thread, std::function<void()> fn)
{
    auto *timer = new QTimer;
    timer->moveToThread(thread);
    timer->setSingleShot(true);
    QObject::connect(timer, &QTimer::timeout, [fn = std::move(fn), timer]() {
        fn();
        timer->deleteLater();
    });
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
