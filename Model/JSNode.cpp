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

QVariantMap JSNode::props() const
{
    return mNode ? mNode->toMap() : QVariantMap();
}

QString JSNode::tagID() const
{
    return stringValue(QStringLiteral("id"));
}

QString JSNode::type() const
{
    return stringValue(QStringLiteral("type"));
}

QString JSNode::kind() const
{
    return stringValue(QStringLiteral("kind"));
}

QString JSNode::stringValue(const QString &key) const
{
    return mNode ? mNode->stringValue(key) : QString();
}

int JSNode::intValue(const QString &key) const
{
    return mNode ? mNode->intValue(key) : 0;
}

qint64 JSNode::int64Value(const QString &key) const
{
    return mNode ? mNode->int64Value(key) : 0;
}

bool JSNode::boolValue(const QString &key) const
{
    return mNode ? mNode->boolValue(key) : false;
}

float JSNode::floatValue(const QString &key) const
{
    return mNode ? mNode->floatValue(key) : 0.0f;
}

QString JSNode::pathValue(const QString &key) const
{
    return mNode ? mNode->pathValue(key) : QString();
}

NLMapNodePtr JSNode::getMapNodeByKey(const QString &key) const
{
    return mNode ? mNode->getMapNodeByKey(key) : NLMapNodePtr();
}

NLListNodePtr JSNode::getListNodeByID(const QString &id) const
{
    return mNode ? mNode->getListNodeByID(id) : NLListNodePtr();
}

std::optional<QString> JSNode::opStringValue(const QString &key) const
{
    return mNode ? mNode->opStringValue(key) : std::nullopt;
}

std::optional<int> JSNode::opIntValue(const QString &key) const
{
    return mNode ? mNode->opIntValue(key) : std::nullopt;
}

std::optional<qint64> JSNode::opInt64Value(const QString &key) const
{
    return mNode ? mNode->opInt64Value(key) : std::nullopt;
}

std::optional<bool> JSNode::opBoolValue(const QString &key) const
{
    return mNode ? mNode->opBoolValue(key) : std::nullopt;
}

std::optional<double> JSNode::opDoubleValue(const QString &key) const
{
    return mNode ? mNode->opDoubleValue(key) : std::nullopt;
}

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
