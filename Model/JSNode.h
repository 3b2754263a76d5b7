#pragma once

#include "Model/NLMapNode.h"
#include "Model/NodeValues.h"
#include "vrfetcher_export.h"

#include <QString>
#include <QVariantMap>

#include <optional>

namespace Veloran {

/// A light typed view over one map node of the timeline tree. It holds only the
/// node pointer, so it is cheap to copy and always reads the node's current values.
/// A view over a null node reads every value as absent. A view is used on the thread
/// that uses its tree; it locks nothing.
class VRFETCHER_EXPORT JSNode : public NodeValues<JSNode>
{
public:
    /// A view over `node`, which may be null.
    explicit JSNode(NLMapNodePtr node = NLMapNodePtr());
    virtual ~JSNode();

    /// The viewed node (possibly null).
    NLMapNodePtr node() const;
    /// Points the view at another node.
    void resetNode(NLMapNodePtr node);

    /// The node's properties with children as node pointers; empty for a null node.
    QVariantMap props() const;
    QString tagID() const; ///< "id"
    QString type() const;  ///< "type"
    QString kind() const;  ///< "kind"

    // The typed getters (stringValue(), opIntValue() and the others) come from NodeValues
    // and read the node's values; a null node reads every value as absent.

    /// The value of `key` as a path resolved against the timeline directory.
    QString pathValue(const QString &key) const;
    /// The map child stored under `key`; null when absent or not a map.
    NLMapNodePtr getMapNodeByKey(const QString &key) const;
    /// The direct list child with id `id` ("<own id>#<key>"); null when none.
    NLListNodePtr getListNodeByID(const QString &id) const;
    /// The node's "double" value of `key` narrowed to float; empty when absent.
    std::optional<float> opFloatValue(const QString &key) const;

protected:
    /// Element maps of the child list "<own id>#<key>"; empty without that list.
    QList<QVariantMap> childListMaps(const QString &key) const;

private:
    friend class NodeValues<JSNode>;
    // The viewed node, or an empty node in place of a null one.
    const NLMapNode &viewed() const;
    const QVariant *valueEntry(const QString &key) const;

    NLMapNodePtr mNode;
};

} // namespace Veloran
