#pragma once

#include "vrfetcher_export.h"

#include <QObject>

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
};

/// Debug builds abort unless called from the thread `object` lives in; a null object,
/// or one detached from every thread, passes. Does nothing in Release builds.
VRFETCHER_EXPORT void assertOwnThread(const QObject *object);
/// Debug builds abort unless called from the application's thread (passes when no
/// application exists). Does nothing in Release builds.
VRFETCHER_EXPORT void assertMainThread();

} // namespace Veloran
