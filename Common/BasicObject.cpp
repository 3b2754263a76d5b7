#include "BasicObject.h"

#include <QCoreApplication>
#include <QThread>

namespace Veloran {

BasicObject::BasicObject(QObject *parent)
    : QObject(parent)
{
}

void BasicObject::assertOwnThread() const
{
    Veloran::assertOwnThread(this);
}

void BasicObject::assertMainThread() const
{
    Veloran::assertMainThread();
}

void BasicObject::moveSelfToThread(QThread *thread)
{
    moveToThread(thread);
    for (BasicObject *part : threadParts()) {
        if (part)
            part->moveSelfToThread(thread);
    }
}

QList<BasicObject *> BasicObject::threadParts() const
{
    return {};
}

#ifdef VR_THREAD_CHECKS

void assertOwnThread(const QObject *object)
{
    if (!object)
        return;
    QThread *owner = object->thread();
    QThread *current = QThread::currentThread();
    // An object detached from every thread (moved to null between picker runs) has
    // no owner to check against.
    if (owner && owner != current)
        qFatal("assertOwnThread: %s %p belongs to thread %p but is used from thread %p",
               object->metaObject()->className(), static_cast<const void *>(object),
               static_cast<void *>(owner), static_cast<void *>(current));
}

void assertMainThread()
{
    QCoreApplication *app = QCoreApplication::instance();
    if (app && app->thread() != QThread::currentThread())
        qFatal("assertMainThread: called from thread %p, the main thread is %p",
               static_cast<void *>(QThread::currentThread()), static_cast<void *>(app->thread()));
}

#else

void assertOwnThread(const QObject *) {}
void assertMainThread() {}

#endif

} // namespace Veloran
