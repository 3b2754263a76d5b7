#pragma once

#include "vrfetcher_export.h"

#include <QList>
#include <QObject>

class QThread;

namespace Veloran {

/// Base of the long-lived objects of the media layer.
///
/// Each such object is used from one thread at a time; the assertions mark where that
/// matters. In Debug builds they compare the calling thread with the object's (or the
/// application's) thread and abort with a message naming both; in Release builds they
/// cost nothing.
class VRFETCHER_EXPORT BasicObject : public QObject
{
    Q_OBJECT
public:
    /// Plain QObject construction; the object belongs to the constructing thread.
    explicit BasicObject(QObject *parent = nullptr);

    /// Debug builds abort unless called from the thread this object lives in.
    /// An object detached from every thread passes.
    void assertOwnThread() const;
    /// Debug builds abort unless called from the application's main thread.
    void assertMainThread() const;

    /// Moves this object and, in turn, the parts it owns (threadParts()) to `thread`;
    /// null detaches them all from every thread. Call it from the thread that
    /// currently owns the object.
    void moveSelfToThread(QThread *thread);

protected:
    /// The owned helper objects that must live in this object's thread; null entries
    /// (parts not made yet) are skipped. None by default.
    virtual QList<BasicObject *> threadParts() const;
};

/// Debug builds abort unless called from the thread `object` lives in; a null object,
/// or one detached from every thread, passes. Does nothing in Release builds.
VRFETCHER_EXPORT void assertOwnThread(const QObject *object);
/// Debug builds abort unless called from the application's thread (passes when no
/// application exists). Does nothing in Release builds.
VRFETCHER_EXPORT void assertMainThread();

} // namespace Veloran
