#include "NLMapNode.h"

#include "Common/Helpers.h"
#include "Model/EditCommand.h"
#include "Model/NLListNode.h"
#include "Model/TimelineFiles.h"

namespace Veloran {

namespace {

const QString kIdKey = QStringLiteral("id");
const QString kRootId = QStringLiteral("/");

} // namespace

int NLMapNode::mapMetaTypeId()
{
    static const int kId = qRegisterMetaType<NLMapNodePtr>("Veloran::NLMapNodePtr");
    return kId;
}

int NLMapNode::listMetaTypeId()
{
    static const int kId = qRegisterMetaType<NLListNodePtr>("Veloran::NLListNodePtr");
    return kId;
}

NLMapNodePtr NLMapNode::mapChild(const QVariant &value)
{
    if (value.userType() != mapMetaTypeId())
        return {};
    return value.value<NLMapNodePtr>();
}

NLListNodePtr NLMapNode::listChild(const QVariant &value)
{
    if (value.userType() != listMetaTypeId())
        return {};
    return value.value<NLListNodePtr>();
}

QVariant NLMapNode::wrap(const NLMapNodePtr &node)
{
    mapMetaTypeId();
    return QVariant::fromValue(node);
}

QVariant NLMapNode::wrap(const NLListNodePtr &list)
{
    listMetaTypeId();
    return QVariant::fromValue(list);
}

NLMapNode::NLMapNode(const QVariantMap &map)
    : mProps(std::make_unique<QVariantMap>())
{
    resetNode(map);
}

NLMapNode::NLMapNode(const QString &json)
    : mProps(std::make_unique<QVariantMap>())
{
    resetNode(jsonToVariantMap(json));
}

// Children are built with the directory already in place, so every node below a
// root carries the root's directory from the start.
NLMapNode::NLMapNode(const QVariantMap &map, const QString &timelineDir)
    : mProps(std::make_unique<QVariantMap>())
    , mTimelineDir(timelineDir)
{
    resetNode(map);
}

NLMapNodePtr NLMapNode::make(const QVariantMap &map, const QString &timelineDir)
{
    return NLMapNodePtr(new NLMapNode(map, timelineDir));
}

NLMapNode::~NLMapNode() = default;

QString NLMapNode::tagID() const
{
    return mId;
}

void NLMapNode::propsChanged()
{
    mId = mProps->value(kIdKey).toString();
    // Built here rather than on first search, so that reading a tree never writes.
    mChildren.clear();
    for (auto it = mProps->cbegin(); it != mProps->cend(); ++it) {
        if (const NLMapNodePtr child = mapChild(it.value()))
            mChildren.append({it.key(), child.data(), nullptr});
        else if (const NLListNodePtr list = listChild(it.value()))
            mChildren.append({it.key(), nullptr, list.data()});
    }
}

INode::Edit NLMapNode::edited(const EditCommand &cmd, NLMapNodePtr *copy) const
{
    return editedCopy(*this, cmd, copy);
}

const QVariant *NLMapNode::valueEntry(const QString &key) const
{
    const auto it = mProps->constFind(key);
    if (it == mProps->cend() || !it.value().isValid())
        return nullptr;
    return &it.value();
}

void NLMapNode::resetNode(const QVariantMap &map)
{
    const QString id = map.value(kIdKey).toString();
    if (id == kRootId)
        mTimelineDir = map.value(QStringLiteral("preview_param")).toMap().value(QStringLiteral("timeline_dir")).toString();

    QVariantMap fresh = map;
    for (auto it = fresh.begin(); it != fresh.end(); ++it) {
        const int type = it.value().userType();
        if (type == QMetaType::QVariantList)
            it.value() = wrap(NLListNodePtr::create(id + QLatin1Char('#') + it.key(), mTimelineDir, it.value().toList()));
        else if (type == QMetaType::QVariantMap)
            it.value() = wrap(make(it.value().toMap(), mTimelineDir));
    }
    *mProps = std::move(fresh);
    propsChanged();
}

void NLMapNode::modifyNode(const QVariantMap &map)
{
    mProps->insert(map);
    propsChanged();
}

void NLMapNode::assertMapIsSingleLevel(const QVariantMap &) const
{
}

INode *NLMapNode::findNode(const QString &id, INode **parent)
{
    return findAmong(id, parent, mChildren, [](const Child &child) -> INode * {
        return child.map ? static_cast<INode *>(child.map) : child.list;
    });
}

void NLMapNode::processCommand(const EditCommand &cmd, INode *)
{
    apply(cmd, [this] { return this; });
}

template <typename Writable>
INode::Edit NLMapNode::apply(const EditCommand &cmd, const Writable &writable) const
{
    if (cmd.targetID == mId) {
        if (cmd.kind == EditCommand::ResetNode)
            writable()->resetNode(jsonToVariantMap(cmd.content));
        else if (cmd.kind == EditCommand::ModifyNode)
            writable()->modifyNode(jsonToVariantMap(cmd.content));
        else
            return Edit::Unchanged;
        return Edit::Changed;
    }
    // The first child in key order that holds the target takes the command.
    for (const Child &child : mChildren) {
        NLMapNodePtr map;
        NLListNodePtr list;
        const Edit edit = child.map ? child.map->edited(cmd, &map) : child.list->edited(cmd, &list);
        if (edit == Edit::Missed)
            continue;
        if (edit == Edit::Changed) {
            const QString key = child.key; // `child` goes with the change
            NLMapNode *node = writable();
            node->mProps->insert(key, map ? wrap(map) : wrap(list));
            node->propsChanged();
        }
        return edit;
    }
    return Edit::Missed;
}

template <typename Convert>
QVariant NLMapNode::convertedChild(const Child &child, Convert convert)
{
    if (child.map) {
        const NLMapNodePtr node = convert(*child.map);
        return node ? wrap(node) : QVariant();
    }
    const NLListNodePtr list = convert(*child.list);
    return list ? wrap(list) : QVariant();
}

void NLMapNode::copyOnWrite()
{
    auto copy = std::make_unique<QVariantMap>(*mProps);
    copy->detach();
    for (const Child &child : qAsConst(mChildren))
        copy->insert(child.key, convertedChild(child, [](const auto &node) { return node.clone(); }));
    mProps = std::move(copy); // the old children go only now: mChildren points into them
    propsChanged();
}

NLMapNodePtr NLMapNode::clone() const
{
    const NLMapNodePtr copy = shallowCopy();
    copy->copyOnWrite();
    return copy;
}

NLMapNodePtr NLMapNode::shallowCopy() const
{
    const NLMapNodePtr copy = NLMapNodePtr::create();
    copy->mTimelineDir = mTimelineDir;
    *copy->mProps = *mProps;
    copy->propsChanged();
    return copy;
}

QString NLMapNode::pathValue(const QString &key) const
{
    const QString value = stringValue(key);
    if (value.isEmpty() || mTimelineDir.isEmpty())
        return value;
    if (value.startsWith(QLatin1Char(':')))
        return value; // Qt resource
    if (value.size() >= 3 && value.at(1) == QLatin1Char(':'))
        return value; // drive path
    // Stored paths are relative to the document, even those that begin with "/".
    return appendPath(mTimelineDir, value);
}

NLMapNodePtr NLMapNode::getMapNodeByKey(const QString &key) const
{
    return mapChild(mProps->value(key));
}

NLListNodePtr NLMapNode::getListNodeByID(const QString &id) const
{
    for (const Child &child : mChildren) {
        if (child.list && child.list->tagID() == id)
            return listChild(mProps->value(child.key));
    }
    return {};
}

QVariantMap NLMapNode::toMap() const
{
    return *mProps;
}

QVariantMap NLMapNode::toJsonMap() const
{
    QVariantMap plain = *mProps;
    for (auto it = plain.begin(); it != plain.end(); ++it) {
        const int type = it.value().userType();
        if (type == mapMetaTypeId()) {
            const NLMapNodePtr child = mapChild(it.value());
            it.value() = child ? QVariant(child->toJsonMap()) : QVariant(); // null pointer: JSON null
        } else if (type == listMetaTypeId()) {
            const NLListNodePtr list = listChild(it.value());
            it.value() = list ? QVariant(list->toJsonList()) : QVariant();
        }
    }
    return plain;
}

QString NLMapNode::toJson() const
{
    return variantMapToJson(toJsonMap(), true);
}

void NLMapNode::setValue(const QString &key, const QVariant &value)
{
    (*mProps)[key] = value;
    propsChanged();
}

QString NLMapNode::timelineDir() const
{
    return mTimelineDir;
}

void NLMapNode::setTimelineDir(const QString &dir)
{
    place(dir, childrenPlacedIn(dir));
}

QVariantMap NLMapNode::childrenPlacedIn(const QString &dir) const
{
    QVariantMap moved;
    for (const Child &child : mChildren) {
        const QVariant copy = convertedChild(child, [&dir](const auto &node) { return node.placedIn(dir); });
        if (copy.isValid())
            moved.insert(child.key, copy);
    }
    return moved;
}

NLMapNodePtr NLMapNode::placedIn(const QString &dir) const
{
    const QVariantMap moved = childrenPlacedIn(dir);
    if (moved.isEmpty() && mTimelineDir == dir)
        return {};
    const NLMapNodePtr copy = shallowCopy();
    copy->place(dir, moved);
    return copy;
}

void NLMapNode::place(const QString &dir, const QVariantMap &movedChildren)
{
    mTimelineDir = dir;
    if (movedChildren.isEmpty())
        return;
    mProps->insert(movedChildren);
    propsChanged();
}

} // namespace Veloran
