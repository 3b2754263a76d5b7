#pragma once

#include "Model/NLMapNode.h"
#include "vrfetcher_export.h"

#include <QString>
#include <QVariantMap>

#include <optional>

namespace Veloran {

// A light typed view over one map node of the timeline tree. It holds only the
// node pointer, so it is cheap to copy and always reads the node's current values.
// A view over a null node reads every value as absent.
class VRFETCHER_EXPORT JSNode
{
public:
    explicit JSNode(NLMapNodePtr node = NLMapNodePtr());
    virtual ~JSNode();

    NLMapNodePtr node() const;
    void resetNode(NLMapNodePtr node);

    QVariantMap props() const;
    QString tagID() const;
    QString type() const;
    QString kind() const;

    QString stringValue(const QString &key) const;
    int intValue(const QString &key) const;
    qint64 int64Value(const QString &key) const;
    bool boolValue(const QString &key) const;
    float floatValue(const QString &key) const;
    QString pathValue(const QString &key) const;
    NLMapNodePtr getMapNodeByKey(const QString &key) const;
    NLListNodePtr getListNodeByID(const QString &id) const;

    std::optional<QString> opStringValue(const QString &key) const;
    std::optional<int> opIntValue(const QString &key) const;
    std::optional<qint64> opInt64Value(const QString &key) const;
    std::optional<bool> opBoolValue(const QString &key) const;
    std::optional<double> opDoubleValue(const QString &key) const;
    std::optional<float> opFloatValue(const QString &key) const;

protected:
    // Element maps of the child list "<own id>#<key>"; empty without that list.
    QList<QVariantMap> childListMaps(const QString &key) const;

private:
    NLMapNodePtr mNode;
};

} // namespace Veloran
