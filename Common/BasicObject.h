#pragma once

#include "vrfetcher_export.h"

#include <QObject>

namespace Veloran {

// Base of the long-lived objects of the media layer. Each such object is used from
// one thread at a time; the assertions mark where that matters. In Debug builds they
// compare the calling thread with the object's (or the application's) thread and
// abort with a message naming both; in Release builds they cost nothing.
class VRFETCHER_EXPORT BasicObject : public QObject
{
    Q_OBJECT
public:
    explicit BasicObject(QObject *parent = nullptr);

    void assertOwnThread() const;
    void assertMainThread() const;
};

VRFETCHER_EXPORT void assertOwnThread(const QObject *object);
VRFETCHER_EXPORT void assertMainThread();

} // namespace Veloran
