#pragma once

#include "Model/INode.h"
#include "vrfetcher_export.h"

#include <QList>
#include <QMetaType>
#include <QEnableSharedFromThis>
#include <QSharedPointer>
#include <QString>
#include <QVariantList>

namespace Veloran {

class NLMapNode;
class NLListNode;
using NLMapNodePtr = QSharedPointer<NLMapNode>;
using NLListNodePtr = QSharedPointer<NLListNode>;

// A JSON array of the timeline document; its elements are map nodes. Its id is the
// id of the map node that holds it, "#" and the key it is stored under.
class VRFETCHER_EXPORT NLListNode : public INode, public QEnableSharedFromThis<NLListNode>
{
public:
    NLListNode(const QString &id, const QString &timelineDir, const QVariantList &list);
    ~NLListNode() override;

    NLListNode(const NLListNode &) = delete;
    NLListNode &operator=(const NLListNode &) = delete;

    QString tagID() const override;
    INode *findNode(const QString &id, INode **parent) override;
    void processCommand(const EditCommand &cmd, INode *parent) override;
    void copyOnWrite() override;

    // Rebuilds the elements from `list`, keeping the existing element of an id.
    void resetList(const QVariantList &list);

    NLMapNodePtr getNode(const QString &id) const;
    QList<NLMapNodePtr> &nodeList();
    const QList<NLMapNodePtr> &nodeList() const;

    QVariantList toList() const;     // each element's toMap()
    QVariantList toJsonList() const; // each element's toJsonMap()

    NLListNodePtr clone() const;

    QString timelineDir() const;
    void setTimelineDir(const QString &dir); // also for every node below

private:
    void applyEdit(const EditCommand &cmd);
    friend class NLMapNode;

    QString mId;
    QString mTimelineDir;
    QSharedPointer<QList<NLMapNodePtr>> mNodes;
};

} // namespace Veloran

Q_DECLARE_METATYPE(Veloran::NLListNodePtr)
