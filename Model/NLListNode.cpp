#include "NLListNode.h"

#include "Model/EditCommand.h"
#include "Model/NLMapNode.h"
#include "Model/TimelineFiles.h"

namespace Veloran {

NLListNode::NLListNode(const QString &id, const QString &timelineDir, const QVariantList &list)
    : mId(id)
    , mTimelineDir(timelineDir)
    , mNodes(QSharedPointer<QList<NLMapNodePtr>>::create())
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
    const auto fresh = QSharedPointer<QList<NLMapNodePtr>>::create();
    fresh->reserve(list.size());
    for (const QVariant &element : list)
        fresh->append(NLMapNode::make(element.toMap(), mTimelineDir));
    mNodes = fresh;
}

INode *NLListNode::findNode(const QString &id, INode **parent)
{
    return findAmong(id, parent, *mNodes, [](const NLMapNodePtr &element) { return element.data(); });
}

void NLListNode::processCommand(const EditCommand &cmd, INode *)
{
    apply(cmd, [this] { return this; });
}

template <typename Writable>
INode::Edit NLListNode::apply(const EditCommand &cmd, const Writable &writable) const
{
    if (cmd.targetID == mId)
        return writable()->applyEdit(cmd) ? Edit::Changed : Edit::Unchanged;
    for (int i = 0; i < mNodes->size(); ++i) {
        NLMapNodePtr element;
        const Edit edit = mNodes->at(i)->edited(cmd, &element);
        if (edit == Edit::Missed)
            continue;
        if (edit == Edit::Changed)
            (*writable()->mNodes)[i] = element;
        return edit;
    }
    return Edit::Missed;
}

INode::Edit NLListNode::edited(const EditCommand &cmd, NLListNodePtr *copy) const
{
    return editedCopy(*this, cmd, copy);
}

bool NLListNode::applyEdit(const EditCommand &cmd)
{
    switch (cmd.kind) {
    case EditCommand::ResetList:
        resetList(jsonToVariantList(cmd.content));
        return true;
    case EditCommand::AppendNode:
        mNodes->append(NLMapNode::make(jsonToVariantMap(cmd.content), mTimelineDir));
        return true;
    case EditCommand::RemoveNode: {
        const QString id = jsonToVariantMap(cmd.content).value(QStringLiteral("id")).toString();
        for (int i = 0; i < mNodes->size(); ++i) {
            if (mNodes->at(i)->tagID() == id) {
                mNodes->removeAt(i);
                return true;
            }
        }
        return false;
    }
    default:
        return false;
    }
}

void NLListNode::copyOnWrite()
{
    const auto fresh = QSharedPointer<QList<NLMapNodePtr>>::create();
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

QVariantList NLListNode::elementMaps(QVariantMap (NLMapNode::*convert)() const) const
{
    QVariantList list;
    list.reserve(mNodes->size());
    for (const NLMapNodePtr &element : qAsConst(*mNodes))
        list.append((element.data()->*convert)());
    return list;
}

QVariantList NLListNode::toList() const
{
    return elementMaps(&NLMapNode::toMap);
}

QVariantList NLListNode::toJsonList() const
{
    return elementMaps(&NLMapNode::toJsonMap);
}

NLListNodePtr NLListNode::clone() const
{
    const NLListNodePtr copy = shallowCopy();
    copy->copyOnWrite();
    return copy;
}

NLListNodePtr NLListNode::shallowCopy() const
{
    const NLListNodePtr copy = NLListNodePtr::create(mId, mTimelineDir, QVariantList());
    *copy->mNodes = *mNodes;
    return copy;
}

QString NLListNode::timelineDir() const
{
    return mTimelineDir;
}

void NLListNode::setTimelineDir(const QString &dir)
{
    QList<NLMapNodePtr> elements;
    place(dir, elementsPlacedIn(dir, &elements), elements);
}

bool NLListNode::elementsPlacedIn(const QString &dir, QList<NLMapNodePtr> *elements) const
{
    bool moved = false;
    *elements = *mNodes;
    for (int i = 0; i < elements->size(); ++i) {
        if (const NLMapNodePtr copy = elements->at(i)->placedIn(dir)) {
            (*elements)[i] = copy;
            moved = true;
        }
    }
    return moved;
}

NLListNodePtr NLListNode::placedIn(const QString &dir) const
{
    QList<NLMapNodePtr> elements;
    const bool moved = elementsPlacedIn(dir, &elements);
    if (!moved && mTimelineDir == dir)
        return {};
    const NLListNodePtr copy = shallowCopy();
    copy->place(dir, moved, elements);
    return copy;
}

void NLListNode::place(const QString &dir, bool moved, const QList<NLMapNodePtr> &elements)
{
    mTimelineDir = dir;
    if (moved)
        mNodes = QSharedPointer<QList<NLMapNodePtr>>::create(elements);
}

} // namespace Veloran
