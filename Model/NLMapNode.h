#pragma once

#include "Model/INode.h"
#include "Model/NLNodePtrs.h"
#include "Model/NodeValues.h"
#include "vrfetcher_export.h"

#include <QMetaType>
#include <QString>
#include <QVariant>
#include <QVariantMap>
#include <QVector>

#include <memory>

namespace Veloran {

/// A JSON object of the timeline document. Its properties live in one map that is
/// also its child table: a value that was an object holds an NLMapNodePtr, a value
/// that was an array holds an NLListNodePtr, every other value is a plain QVariant.
///
/// A root (id "/") takes its timeline directory from "preview_param"/"timeline_dir";
/// nodes below share it. No locks: a tree is used by one thread at a time. Child nodes
/// may be shared with other trees and holders; edits copy them rather than change
/// them (see INode). Bad JSON gives an empty node.
class VRFETCHER_EXPORT NLMapNode : public INode, public NodeValues<NLMapNode>
{
public:
    /// A node built from `map`, nested maps and lists becoming child nodes.
    explicit NLMapNode(const QVariantMap &map = QVariantMap());
    /// A node built from JSON object text; text that is not a JSON object gives an empty node.
    explicit NLMapNode(const QString &json);
    ~NLMapNode() override;

    QString tagID() const override;
    INode *findNode(const QString &id, INode **parent) override;
    void processCommand(const EditCommand &cmd, INode *parent) override;
    void copyOnWrite() override;

    /// Rebuilds the node from a plain map, nested maps and lists becoming new child
    /// nodes (the old children stay as they are for whoever holds them). Keys missing
    /// from `map` disappear.
    virtual void resetNode(const QVariantMap &map);
    /// Merges `map` into the properties; values are stored as given (no child nodes).
    virtual void modifyNode(const QVariantMap &map);

    /// Marks places that expect a map without nested maps or lists; checks nothing.
    void assertMapIsSingleLevel(const QVariantMap &map) const;

    // The typed getters (opIntValue(), intValue() and the others) come from NodeValues.

    /// A stored path resolved against the timeline directory; resource paths (":...")
    /// and drive paths ("C:...") are returned as they are, and so is every path when
    /// no directory is set.
    QString pathValue(const QString &key) const;

    /// The map child stored under `key`; null when absent or not a map.
    NLMapNodePtr getMapNodeByKey(const QString &key) const;
    /// The direct list child with id `id` ("<own id>#<key>"); null when none.
    NLListNodePtr getListNodeByID(const QString &id) const;

    QVariantMap toMap() const;     ///< the properties, children still as node pointers
    QVariantMap toJsonMap() const; ///< a plain map, children converted recursively
    QString toJson() const;        ///< indented JSON text of toJsonMap()

    /// Stores `value` under `key` as given (wrap() it to store a child node).
    void setValue(const QString &key, const QVariant &value);

    /// A deep copy: same properties and directory, every child node cloned.
    NLMapNodePtr clone() const;
    /// A new node with the same properties and directory that shares the child nodes.
    NLMapNodePtr shallowCopy() const;

    /// The directory that pathValue() resolves against.
    QString timelineDir() const;
    /// Sets the directory of this node and of every node below it; a node below that
    /// has another directory is replaced by a copy that has this one.
    void setTimelineDir(const QString &dir);

    /// Child pointers inside a QVariant; null when the value holds something else.
    static NLMapNodePtr mapChild(const QVariant &value);
    static NLListNodePtr listChild(const QVariant &value); ///< as mapChild(), for a list child
    /// A child pointer packed into a QVariant, as the property map stores it.
    static QVariant wrap(const NLMapNodePtr &node);
    /// \overload
    static QVariant wrap(const NLListNodePtr &list);

    /// Meta-type id of NLMapNodePtr ("Veloran::NLMapNodePtr"), registered on first use
    /// (thread-safe).
    static int mapMetaTypeId();
    /// Meta-type id of NLListNodePtr ("Veloran::NLListNodePtr"), registered on first use
    /// (thread-safe).
    static int listMetaTypeId();

private:
    NLMapNode(const QVariantMap &map, const QString &timelineDir);
    // A shared node built from `map` with `timelineDir` from the start.
    static NLMapNodePtr make(const QVariantMap &map, const QString &timelineDir);
    friend class INode;
    friend class NLListNode;
    friend class NodeValues<NLMapNode>;
    friend class JSNode;

    // Applies `cmd` at or below this node without changing this node: a change is made
    // on writable(), this node itself or a copy of it, asked for only when needed.
    template <typename Writable>
    Edit apply(const EditCommand &cmd, const Writable &writable) const;
    // apply() onto a copy of this node, left in `copy`.
    Edit edited(const EditCommand &cmd, NLMapNodePtr *copy) const;
    // Copies of the children that have, or hold a node that has, another directory.
    QVariantMap childrenPlacedIn(const QString &dir) const;
    // A copy of this node with `dir` throughout; null when it has it already.
    NLMapNodePtr placedIn(const QString &dir) const;
    void place(const QString &dir, const QVariantMap &movedChildren);

    // The entry of `key` when it holds a valid value, else null.
    const QVariant *valueEntry(const QString &key) const;
    // To be called after every change of mProps: refreshes the cached id and the
    // child table.
    void propsChanged();

    std::unique_ptr<QVariantMap> mProps;
    QString mTimelineDir;
    QString mId;                // props["id"] as a string
    // A child node, owned through mProps: a map or a list.
    struct Child
    {
        QString key;
        NLMapNode *map;
        NLListNode *list;
    };
    QVector<Child> mChildren; // in key order
    // What `convert` makes of the child node, as the property map stores it; invalid
    // when it gives a null pointer.
    template <typename Convert>
    static QVariant convertedChild(const Child &child, Convert convert);
};

} // namespace Veloran

Q_DECLARE_METATYPE(Veloran::NLMapNodePtr)
