#include "JSNode.h"

#include "Model/NLListNode.h"

namespace Veloran {

JSNode::JSNode(NLMapNodePtr node)
    : mNode(std::move(node))
{
}

JSNode::~JSNode() = default;

NLMapNodePtr JSNode::node() const
{
    return mNode;
}

void JSNode::resetNode(NLMapNodePtr node)
{
    mNode = std::move(node);
}

const NLMapNode &JSNode::viewed() const
{
    // Read only, so one empty node serves every view over a null node, on any thread.
    static const NLMapNode kEmpty;
    return mNode ? *mNode : kEmpty;
}

const QVariant *JSNode::valueEntry(const QString &key) const
{
    return viewed().valueEntry(key);
}

QVariantMap JSNode::props() const { return viewed().toMap(); }
QString JSNode::tagID() const { return stringValue(QStringLiteral("id")); }
QString JSNode::type() const { return stringValue(QStringLiteral("type")); }
QString JSNode::kind() const { return stringValue(QStringLiteral("kind")); }
QString JSNode::pathValue(const QString &key) const { return viewed().pathValue(key); }
NLMapNodePtr JSNode::getMapNodeByKey(const QString &key) const { return viewed().getMapNodeByKey(key); }
NLListNodePtr JSNode::getListNodeByID(const QString &id) const { return viewed().getListNodeByID(id); }

std::optional<float> JSNode::opFloatValue(const QString &key) const
{
    const std::optional<double> value = opDoubleValue(key);
    if (!value)
        return std::nullopt;
    return static_cast<float>(*value);
}

QList<QVariantMap> JSNode::childListMaps(const QString &key) const
{
    QList<QVariantMap> maps;
    const NLListNodePtr list = getListNodeByID(tagID() + QLatin1Char('#') + key);
    if (!list)
        return maps;
    const QList<NLMapNodePtr> &elements = list->nodeList();
    maps.reserve(elements.size());
    for (const NLMapNodePtr &element : elements)
        maps.append(element->toMap());
    return maps;
}

} // namespace Veloran
