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

/// A JSON array of the timeline document; its elements are map nodes. Its id is the
/// id of the map node that holds it, "#" and the key it is stored under.
/// Always held by an NLListNodePtr (edits need sharedFromThis()). No locks: one
/// thread at a time per tree.
class VRFETCHER_EXPORT NLListNode : public INode, public QEnableSharedFromThis<NLListNode>
{
public:
    /// A list called `id` whose elements are built from the maps in `list`; entries that
    /// are not maps become empty nodes.
    NLListNode(const QString &id, const QString &timelineDir, const QVariantList &list);
    ~NLListNode() override;

    NLListNode(const NLListNode &) = delete;
    NLListNode &operator=(const NLListNode &) = delete;

    QString tagID() const override;
    INode *findNode(const QString &id, INode **parent) override;
    void processCommand(const EditCommand &cmd, INode *parent) override;
    void copyOnWrite() override;

    /// Rebuilds the elements from `list`, keeping the existing element of an id.
    void resetList(const QVariantList &list);

    /// The element with id `id`; null when none.
    NLMapNodePtr getNode(const QString &id) const;
    /// The elements in order. The storage may be shared with copies: call
    /// copyOnWrite() before changing it through the mutable overload.
    QList<NLMapNodePtr> &nodeList();
    /// \overload
    const QList<NLMapNodePtr> &nodeList() const;

    QVariantList toList() const;     ///< each element's toMap()
    QVariantList toJsonList() const; ///< each element's toJsonMap()

    /// A deep copy: same id and directory, every element cloned.
    NLListNodePtr clone() const;

    /// The directory that relative paths below this list resolve against.
    QString timelineDir() const;
    void setTimelineDir(const QString &dir); ///< also for every node below

private:
    void applyEdit(const EditCommand &cmd); // the list edits, on this list itself
    friend class NLMapNode;

    QString mId;
    QString mTimelineDir;
    QSharedPointer<QList<NLMapNodePtr>> mNodes;
};

} // namespace Veloran

Q_DECLARE_METATYPE(Veloran::NLListNodePtr)
