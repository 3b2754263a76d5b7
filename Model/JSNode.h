#pragma once

#include "Model/NLMapNode.h"
#include "vrfetcher_export.h"

#include <QString>
#include <QVariantMap>

#include <optional>

namespace Veloran {

/// A light typed view over one map node of the timeline tree. It holds only the
/// node pointer, so it is cheap to copy and always reads the node's current values.
/// A view over a null node reads every value as absent. A view is used on the thread
/// that uses its tree; it locks nothing.
class VRFETCHER_EXPORT JSNode
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

    /// \name Values by key
    //@{
    /// The node's value of `key`, or 0, false or an empty string when the key (or the
    /// node) is absent. pathValue() resolves the path against the timeline directory.
    QString stringValue(const QString &key) const;
    int intValue(const QString &key) const;
    qint64 int64Value(const QString &key) const;
    bool boolValue(const QString &key) const;
    float floatValue(const QString &key) const;
    QString pathValue(const QString &key) const;
    //@}
    /// The map child stored under `key`; null when absent or not a map.
    NLMapNodePtr getMapNodeByKey(const QString &key) const;
    /// The direct list child with id `id` ("<own id>#<key>"); null when none.
    NLListNodePtr getListNodeByID(const QString &id) const;

    /// \name Optional values by key
    //@{
    /// Empty when the key (or the node) is absent or holds an invalid value.
    std::optional<QString> opStringValue(const QString &key) const;
    std::optional<int> opIntValue(const QString &key) const;
    std::optional<qint64> opInt64Value(const QString &key) const;
    std::optional<bool> opBoolValue(const QString &key) const;
    std::optional<double> opDoubleValue(const QString &key) const;
    std::optional<float> opFloatValue(const QString &key) const;
    //@}

protected:
    /// Element maps of the child list "<own id>#<key>"; empty without that list.
    QList<QVariantMap> childListMaps(const QString &key) const;

private:
    NLMapNodePtr mNode;
};

} // namespace Veloran
