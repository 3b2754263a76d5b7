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
    /// source called `name`, replacing whatever was watched before. False when the node
    /// refuses the URL or no replica could be acquired (nothing is logged then).
    /// Logs "replica initialized" and each "replicate state changed: " through qDebug.
    bool startMonitoring(const QString &nodeUrl, const QString &name);

Q_SIGNALS:
    /// Emitted at every state change that leaves the replica invalid; may repeat.
    void disconnectRemoteObject();

private:
    void watchReplica(); // connects the replica's signals to the logging and the report

    QSharedPointer<QRemoteObjectNode> mNode;
    QSharedPointer<QRemoteObjectDynamicReplica> mReplica;
};

} // namespace Veloran
