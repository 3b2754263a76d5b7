#include "NLListNode.h"

#include "Model/EditCommand.h"
#include "Model/NLMapNode.h"
#include "Model/TimelineFiles.h"

namespace Veloran {

NLListNode::NLListNode(const QString &id, const QString &timelineDir, const QVariantList &list)
    : mId(id)
    , mTimelineDir(timelineDir)
    , mNodes(new QList<NLMapNodePtr>)
{
    NLMapNode::listMetaTypeId();
    resetList(list);
}

NLListNode::~NLListNode() = default;

QString NLListNode::tagID() const
{
    return mId;
}

void NLListNode::resetList(const QVariantList &list)
{
    QSharedPointer<QList<NLMapNodePtr>> fresh(new QList<NLMapNodePtr>);
    fresh->reserve(list.size());
    for (const QVariant &element : list) {
        const QVariantMap map = element.toMap();
        const QString id = map.value(QStringLiteral("id")).toString();
        NLMapNodePtr existing;
        for (const NLMapNodePtr &current : qAsConst(*mNodes)) {
            if (current->tagID() == id) {
                existing = current;
                break;
            }
        }
        if (existing) {
            // Keep the node others may hold; it takes the new values.
            existing->mTimelineDir = mTimelineDir;
            existing->resetNode(map);
            fresh->append(existing);
        } else {
            fresh->append(NLMapNodePtr(new NLMapNode(map, mTimelineDir)));
        }
    }
    mNodes = fresh;
}

INode *NLListNode::findNode(const QString &id, INode **parent)
{
    INode *ignored = nullptr;
    if (!parent)
        parent = &ignored;
    *parent = nullptr;
    if (id == mId)
        return this;
    for (const NLMapNodePtr &element : qAsConst(*mNodes)) {
        if (INode *hit = element->findNode(id, parent)) {
            if (!*parent)
                *parent = this;
            return hit;
        }
    }
    return nullptr;
}

void NLListNode::processCommand(const EditCommand &cmd, INode *parent)
{
    if (cmd.targetID != mId) {
        INode *node = findNode(cmd.targetID, &parent);
        if (node)
            node->processCommand(cmd, parent);
        return;
    }

    if (!parent) {
        applyEdit(cmd);
        return;
    }
    // Copying the container replaces this list by a clone inside it. When the
    // command came down from a map node the container had already been copied once,
    // so `this` has just left the tree (and may be freed with the container's old
    // map): the edit goes to the list the container holds now.
    const NLListNodePtr keepAlive = sharedFromThis();
    parent->copyOnWrite();
    NLListNode *target = this;
    if (auto *container = dynamic_cast<NLMapNode *>(parent)) {
        if (const NLListNodePtr fresh = container->getListNodeByID(mId))
            target = fresh.data();
    }
    target->applyEdit(cmd);
}

void NLListNode::applyEdit(const EditCommand &cmd)
{
    switch (cmd.kind) {
    case EditCommand::ResetList:
        resetList(jsonToVariantList(cmd.content));
        break;
    case EditCommand::AppendNode: {
        NLMapNodePtr node(new NLMapNode(cmd.content));
        node->setTimelineDir(mTimelineDir);
        mNodes->append(node);
        break;
    }
    case EditCommand::RemoveNode: {
        const QString id = NLMapNode(cmd.content).tagID();
        for (int i = 0; i < mNodes->size(); ++i) {
            if (mNodes->at(i)->tagID() == id) {
                mNodes->removeAt(i);
                break;
            }
        }
        break;
    }
    default:
        break;
    }
}

void NLListNode::copyOnWrite()
{
    QSharedPointer<QList<NLMapNodePtr>> fresh(new QList<NLMapNodePtr>);
    fresh->reserve(mNodes->size());
    for (const NLMapNodePtr &element : qAsConst(*mNodes))
        fresh->append(element->clone());
    mNodes = fresh;
}

NLMapNodePtr NLListNode::getNode(const QString &id) const
{
    for (const NLMapNodePtr &element : qAsConst(*mNodes)) {
        if (element->tagID() == id)
            return element;
    }
    return {};
}

QList<NLMapNodePtr> &NLListNode::nodeList()
{
    return *mNodes;
}

const QList<NLMapNodePtr> &NLListNode::nodeList() const
{
    return *mNodes;
}

QVariantList NLListNode::toList() const
{
    QVariantList list;
    list.reserve(mNodes->size());
    for (const NLMapNodePtr &element : qAsConst(*mNodes))
        list.append(element->toMap());
    return list;
}

QVariantList NLListNode::toJsonList() const
{
    QVariantList list;
    list.reserve(mNodes->size());
    for (const NLMapNodePtr &element : qAsConst(*mNodes))
        list.append(element->toJsonMap());
    return list;
}

NLListNodePtr NLListNode::clone() const
{
    NLListNodePtr copy(new NLListNode(mId, mTimelineDir, QVariantList()));
    copy->mNodes->reserve(mNodes->size());
    for (const NLMapNodePtr &element : qAsConst(*mNodes))
        copy->mNodes->append(element->clone());
    return copy;
}

QString NLListNode::timelineDir() const
{
    return mTimelineDir;
}

void NLListNode::setTimelineDir(const QString &dir)
{
    mTimelineDir = dir;
    for (const NLMapNodePtr &element : qAsConst(*mNodes))
        element->setTimelineDir(dir);
}

} // namespace Veloran
