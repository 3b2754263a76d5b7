#include "RemoteObjectMonitor.h"

#include <QDebug>
#include <QMetaEnum>
#include <QRemoteObjectDynamicReplica>
#include <QRemoteObjectNode>
#include <QUrl>

namespace Veloran {

RemoteObjectMonitor::RemoteObjectMonitor(QObject *parent)
    : QObject(parent)
{
}

// The replica refers to the node it was acquired from, so it is released first.
RemoteObjectMonitor::~RemoteObjectMonitor()
{
    mReplica.reset();
    mNode.reset();
}

bool RemoteObjectMonitor::startMonitoring(const QString &nodeUrl, const QString &name, int timeoutMs)
{
    // The old replica, and with it the old connections, goes before its node.
    mReplica.reset();
    mNode = QSharedPointer<QRemoteObjectNode>::create();
    if (!mNode->connectToNode(QUrl(nodeUrl, QUrl::TolerantMode)))
        return false;

    QRemoteObjectDynamicReplica *replica = mNode->acquireDynamic(name);
    if (!replica)
        return false;
    mReplica.reset(replica);
    watchReplica();

    // A well-formed address is accepted even when nothing serves it (the node keeps
    // retrying), so only an answer from the source proves the host is there. The
    // handlers are connected first so the first state change is logged as well.
    if (!replica->waitForSource(timeoutMs)) {
        mReplica.reset();
        return false;
    }
    return true;
}

void RemoteObjectMonitor::watchReplica()
{
    QRemoteObjectDynamicReplica *replica = mReplica.data();
    connect(replica, &QRemoteObjectReplica::initialized, replica, [] {
        qDebug().noquote() << "replica initialized";
    }, Qt::DirectConnection);
    connect(replica, &QRemoteObjectReplica::stateChanged, replica,
            [this, replica](QRemoteObjectReplica::State state, QRemoteObjectReplica::State) {
                const char *stateName = QMetaEnum::fromType<QRemoteObjectReplica::State>().valueToKey(state);
                qDebug().noquote() << QStringLiteral("replicate state changed: ") + QString::fromLatin1(stateName);
                if (!replica->isReplicaValid()) {
                    qDebug().noquote() << "replica disconnectRemoteObject";
                    emit disconnectRemoteObject();
                }
            }, Qt::DirectConnection);
}

} // namespace Veloran
