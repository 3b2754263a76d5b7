#pragma once

#include "Model/INode.h"
#include "Model/NLNodePtrs.h"
#include "vrfetcher_export.h"

#include <QEnableSharedFromThis>
#include <QList>
#include <QMetaType>
#include <QString>
#include <QVariantList>

namespace Veloran {

/// A JSON array of the timeline document; its elements are map nodes. Its id is the
/// id of the map node that holds it, "#" and the key it is stored under.
/// No locks: one thread at a time per tree; its elements may be shared with other
/// trees and holders, and edits copy them rather than change them (see INode).
class VRFETCHER_EXPORT NLListNode : public INode, public QEnableSharedFromThis<NLListNode>
{
public:
    /// A list called `id` whose elements are built from the maps in `list`; entries that
    /// are not maps become empty nodes.
    NLListNode(const QString &id, const QString &timelineDir, const QVariantList &list);
    ~NLListNode() override;

    QString tagID() const override;
    INode *findNode(const QString &id, INode **parent) override;
    void processCommand(const EditCommand &cmd, INode *parent) override;
    void copyOnWrite() override;

    /// Rebuilds the elements from `list` as new nodes (the old elements stay as they
    /// are for whoever holds them).
    void resetList(const QVariantList &list);

    /// The element with id `id`; null when none.
    NLMapNodePtr getNode(const QString &id) const;
    /// The elements in order. Elements may be shared with other trees: replace an
    /// element rather than change it through the mutable overload.
    QList<NLMapNodePtr> &nodeList();
    /// \overload
    const QList<NLMapNodePtr> &nodeList() const;

    QVariantList toList() const;     ///< each element's toMap()
    QVariantList toJsonList() const; ///< each element's toJsonMap()

    /// A deep copy: same id and directory, every element cloned.
    NLListNodePtr clone() const;
    /// A new list with the same id, directory and elements (shared, not copied).
    NLListNodePtr shallowCopy() const;

    /// The directory that relative paths below this list resolve against.
    QString timelineDir() const;
    /// Also for every node below; an element with another directory is replaced by a copy.
    void setTimelineDir(const QString &dir);

private:
    // As NLMapNode::apply(), for a list.
    template <typename Writable>
    Edit apply(const EditCommand &cmd, const Writable &writable) const;
    Edit edited(const EditCommand &cmd, NLListNodePtr *copy) const;
    bool applyEdit(const EditCommand &cmd); // the list edits, on this list itself
    // What `convert` makes of each element, in order.
    QVariantList elementMaps(QVariantMap (NLMapNode::*convert)() const) const;
    // The elements with `dir` throughout; false when they have it already.
    bool elementsPlacedIn(const QString &dir, QList<NLMapNodePtr> *elements) const;
    NLListNodePtr placedIn(const QString &dir) const; // as NLMapNode::placedIn()
    void place(const QString &dir, bool moved, const QList<NLMapNodePtr> &elements);
    friend class INode;
    friend class NLMapNode;

    QString mId;
    QString mTimelineDir;
    QSharedPointer<QList<NLMapNodePtr>> mNodes;
};

} // namespace Veloran

Q_DECLARE_METATYPE(Veloran::NLListNodePtr)
