#pragma once

#include "vrfetcher_export.h"

#include <QObject>
#include <QSharedPointer>
#include <QString>

class QRemoteObjectNode;
class QRemoteObjectDynamicReplica;

namespace Veloran {

/// Watches one object that another process publishes through Qt Remote Objects and emits
/// disconnectRemoteObject() whenever the replica changes state and is no longer valid
/// (typically when the publishing process goes away). It lives in the thread that calls
/// startMonitoring(); that thread must run an event loop for anything to arrive.
class VRFETCHER_EXPORT RemoteObjectMonitor : public QObject
{
    Q_OBJECT
public:
    /// Watches nothing until startMonitoring() is called.
    explicit RemoteObjectMonitor(QObject *parent = nullptr);
    /// Releases the replica and the node.
    ~RemoteObjectMonitor() override;

    /// Connects a fresh client node to `nodeUrl` and acquires a dynamic replica of the
    /// source called `name`, replacing whatever was watched before, then waits up to
    /// `timeoutMs` for the source to answer. True once the replica is connected to the
    /// source. False when the node refuses the URL, no replica could be acquired, or no
    /// source answered in time (the replica is then released; the new node stays held).
    /// The wait runs a local event loop on the calling thread, so queued events of that
    /// thread may be delivered before this returns.
    /// Logs "replica initialized" and each "replicate state changed: " through qDebug.
    bool startMonitoring(const QString &nodeUrl, const QString &name, int timeoutMs = 3000);

Q_SIGNALS:
    /// Emitted at every state change that leaves the replica invalid; may repeat.
    void disconnectRemoteObject();

private:
    void watchReplica(); // connects the replica's signals to the logging and the report

    QSharedPointer<QRemoteObjectNode> mNode;
    QSharedPointer<QRemoteObjectDynamicReplica> mReplica;
};

} // namespace Veloran
