#include "RandomTimeline.h"

#include "Model/NLListNode.h"

#include <QJsonDocument>

using namespace Veloran;

namespace {

QString json(const QVariant &value)
{
    return QString::fromUtf8(QJsonDocument::fromVariant(value).toJson(QJsonDocument::Compact));
}

} // namespace

RandomTimeline::RandomTimeline(quint32 seed)
    : mRandom(seed)
{
}

QVariantMap RandomTimeline::document()
{
    QVariantList tracks;
    for (int t = 0, trackCount = 1 + mRandom.bounded(3); t < trackCount; ++t) {
        QVariantList clips;
        for (int c = 0, clipCount = mRandom.bounded(4); c < clipCount; ++c)
            clips << clip(QStringLiteral("c%1").arg(mNext++));
        tracks << QVariantMap{{"id", QStringLiteral("t%1").arg(t)}, {"clips", clips}};
    }
    return {{"id", "/"}, {"preview_param", QVariantMap{{"timeline_dir", "/p"}}}, {"title", "doc"},
            {"tracks", tracks}, {"settings", QVariantMap{{"id", "s"}, {"level", mRandom.bounded(9)}}}};
}

QVariantMap RandomTimeline::clip(const QString &id)
{
    QVariantMap clip{{"id", id}, {"file_path", QStringLiteral("m/%1.mp4").arg(id)},
                     {"timeline_pos", mRandom.bounded(1000)}, {"range_length", 1000 + mRandom.bounded(9000)},
                     {"original_length", 20000}, {"alpha", mRandom.generateDouble()},
                     {"transform", QVariantMap{{"id", id + "-tr"}, {"zoom", mRandom.bounded(4)},
                                               {"pan_crop_begin", "0,0,1,1"}, {"pan_crop_end", "0.5,0.5,0.5,0.5"}}},
                     {"video_filters", elements(id + "-f", mRandom.bounded(3))}};
    if (mRandom.bounded(2))
        clip.insert("variableSpeed", QVariantList{QVariantMap{{"id", id + "-s0"}, {"original_pos", 0}, {"value", 0.5}},
                                                  QVariantMap{{"id", id + "-s1"}, {"original_pos", 1}, {"value", 2}}});
    return clip;
}

QVariantList RandomTimeline::elements(const QString &prefix, int count)
{
    QVariantList list;
    for (int i = 0; i < count; ++i)
        list << object(prefix + QString::number(mNext++), 1);
    return list;
}

// Plain values and, above depth 0, a nested object or array now and then.
QVariantMap RandomTimeline::object(const QString &id, int depth)
{
    QVariantMap map{{"id", id}, {"value", mRandom.bounded(100)}};
    if (depth > 0 && mRandom.bounded(3) == 0)
        map.insert("inner", object(id + "-in", depth - 1));
    if (depth > 0 && mRandom.bounded(3) == 0)
        map.insert("items", elements(id + "-it", 1 + mRandom.bounded(2)));
    return map;
}

EditCommand RandomTimeline::command(const QStringList &ids)
{
    const qint32 kind = mRandom.bounded(6);
    const QString target = ids.isEmpty() || mRandom.bounded(10) == 0 ? QStringLiteral("missing")
                                                                     : ids.at(mRandom.bounded(ids.size()));
    QVariant content;
    switch (kind) {
    case EditCommand::ResetList:
        content = elements("n", mRandom.bounded(3));
        break;
    case EditCommand::RemoveNode:
        content = QVariantMap{{"id", ids.value(mRandom.bounded(qMax(1, ids.size())))}};
        break;
    case EditCommand::ResetNode: {
        QVariantMap map = object(target, 2);
        map.insert("transform", object(target + "-tr", 1));
        content = map;
        break;
    }
    case EditCommand::ModifyNode:
        content = QVariantMap{{"mark", mNext++}, {"alpha", mRandom.generateDouble()}};
        break;
    default:
        content = object(QStringLiteral("n%1").arg(mNext++), 2);
        break;
    }
    return EditCommand{kind, target, json(content)};
}

EditCommand RandomTimeline::clipCommand(const QString &clipId)
{
    switch (mRandom.bounded(6)) {
    case 0:
        return {EditCommand::ModifyNode, clipId, json(QVariantMap{{"alpha", mRandom.generateDouble()}})};
    case 1:
        return {EditCommand::ModifyNode, clipId + "-tr", json(QVariantMap{{"zoom", mRandom.bounded(9)}})};
    case 2:
        return {EditCommand::ResetNode, clipId + "-tr", json(object(clipId + "-tr", 0))};
    case 3:
        return {EditCommand::AppendNode, clipId + "#video_filters", json(object(QStringLiteral("f%1").arg(mNext++), 0))};
    case 4:
        return {EditCommand::ResetList, clipId + "#variableSpeed", json(elements(clipId + "-s", 2))};
    default:
        return {EditCommand::ResetNode, clipId, json(clip(clipId))};
    }
}

QStringList RandomTimeline::ids(const NLMapNodePtr &node)
{
    QStringList result{node->tagID()};
    for (const QVariant &value : node->toMap()) {
        if (const NLMapNodePtr child = NLMapNode::mapChild(value))
            result << ids(child);
        else if (const NLListNodePtr list = NLMapNode::listChild(value))
            result << ids(list);
    }
    return result;
}

QStringList RandomTimeline::ids(const NLListNodePtr &list)
{
    QStringList result{list->tagID()};
    for (const NLMapNodePtr &element : list->nodeList())
        result << ids(element);
    return result;
}

QList<NLMapNodePtr> RandomTimeline::clips(const NLMapNodePtr &root)
{
    QList<NLMapNodePtr> result;
    const NLListNodePtr tracks = root->getListNodeByID("/#tracks");
    for (const NLMapNodePtr &track : tracks ? tracks->nodeList() : QList<NLMapNodePtr>())
        if (const NLListNodePtr clips = track->getListNodeByID(track->tagID() + "#clips"))
            result << clips->nodeList();
    return result;
}
