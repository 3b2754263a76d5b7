#include "Model/EditCommand.h"
#include "Model/JSBasicClip.h"
#include "Model/NLListNode.h"
#include "Model/NLMapNode.h"
#include "Model/TimelineFiles.h"

#include <QtTest>

using namespace Veloran;

namespace {

const char *kDocument = R"({
  "id": "/",
  "preview_param": {"timeline_dir": "/p"},
  "title": "demo",
  "tracks": [
    {"id": "t1", "name": "first", "clips": [
      {"id": "c1", "file_path": "a.mp4", "transform": {"id": "tr1", "zoom": 1},
       "variableSpeed": [{"id": "v1", "original_pos": 0, "value": 1}]},
      {"id": "c2", "file_path": "b.mp4"}
    ]},
    {"id": "t2", "clips": []}
  ]
})";

NLMapNodePtr makeRoot()
{
    return NLMapNodePtr(new NLMapNode(QString::fromUtf8(kDocument)));
}

// The node with `id` as the root sees it now.
NLMapNode *mapAt(const NLMapNodePtr &root, const QString &id)
{
    INode *parent = nullptr;
    return dynamic_cast<NLMapNode *>(root->findNode(id, &parent));
}

NLListNode *listAt(const NLMapNodePtr &root, const QString &id)
{
    INode *parent = nullptr;
    return dynamic_cast<NLListNode *>(root->findNode(id, &parent));
}

QStringList ids(const NLListNode *list)
{
    QStringList result;
    for (const NLMapNodePtr &node : list->nodeList())
        result << node->tagID();
    return result;
}

void send(const NLMapNodePtr &root, qint32 kind, const QString &target, const QString &content)
{
    root->processCommand(EditCommand{kind, target, content}, nullptr);
}

} // namespace

class TstModelEditCommand : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void editsTheRootItself()
    {
        const NLMapNodePtr root = makeRoot();
        const NLListNodePtr tracksBefore = root->getListNodeByID("/#tracks");
        send(root, EditCommand::ModifyNode, "/", R"({"title": "renamed", "fps": 30})");
        QCOMPARE(root->stringValue("title"), QStringLiteral("renamed"));
        QCOMPARE(root->intValue("fps"), 30);
        QCOMPARE(ids(listAt(root, "/#tracks")), QStringList({"t1", "t2"}));
        // The root copied itself: its children are fresh clones, the old ones untouched.
        QVERIFY(root->getListNodeByID("/#tracks") != tracksBefore);
        QCOMPARE(ids(tracksBefore.data()), QStringList({"t1", "t2"}));

        send(root, EditCommand::ResetNode, "/",
             R"({"id": "/", "preview_param": {"timeline_dir": "/q"}, "tracks": [{"id": "t9", "file_path": "z"}]})");
        QCOMPARE(root->timelineDir(), QStringLiteral("/q"));
        QVERIFY(!root->opStringValue("title").has_value());
        QCOMPARE(ids(listAt(root, "/#tracks")), QStringList({"t9"}));
        QCOMPARE(mapAt(root, "t9")->pathValue("file_path"), QStringLiteral("/q/z"));
        QCOMPARE(ids(tracksBefore.data()), QStringList({"t1", "t2"}));
    }

    void mapTargetInsideAListIsCopied()
    {
        const NLMapNodePtr root = makeRoot();
        const NLListNodePtr clips = mapAt(root, "t1")->getListNodeByID("t1#clips");
        const NLMapNodePtr oldC1 = clips->getNode("c1");
        const NLMapNodePtr oldC2 = clips->getNode("c2");

        send(root, EditCommand::ModifyNode, "c1", R"({"file_path": "new.mp4", "speed": 2})");

        QCOMPARE(mapAt(root, "c1")->stringValue("file_path"), QStringLiteral("new.mp4"));
        QCOMPARE(mapAt(root, "c1")->pathValue("file_path"), QStringLiteral("/p/new.mp4"));
        QCOMPARE(mapAt(root, "c1")->intValue("speed"), 2);
        // Holders of the old clip still see the old values.
        QCOMPARE(oldC1->stringValue("file_path"), QStringLiteral("a.mp4"));
        QVERIFY(!oldC1->opIntValue("speed").has_value());
        // The container list was edited in place: its holders see the new clone...
        QVERIFY(clips->getNode("c1") != oldC1);
        QCOMPARE(clips->getNode("c1")->stringValue("file_path"), QStringLiteral("new.mp4"));
        // ...and its other elements were cloned as well.
        QVERIFY(clips->getNode("c2") != oldC2);
        QCOMPARE(clips->getNode("c2")->toJson(), oldC2->toJson());

        send(root, EditCommand::ResetNode, "c2", R"({"id": "c2", "note": "reset"})");
        QCOMPARE(mapAt(root, "c2")->stringValue("note"), QStringLiteral("reset"));
        QVERIFY(!mapAt(root, "c2")->opStringValue("file_path").has_value());
        QCOMPARE(oldC2->stringValue("file_path"), QStringLiteral("b.mp4"));
    }

    void mapTargetInsideAMapIsCopied()
    {
        const NLMapNodePtr root = makeRoot();
        NLMapNode *clip = mapAt(root, "c1");
        const NLMapNodePtr oldTransform = clip->getMapNodeByKey("transform");

        send(root, EditCommand::ModifyNode, "tr1", R"({"zoom": 4})");

        QCOMPARE(mapAt(root, "tr1")->intValue("zoom"), 4);
        QCOMPARE(oldTransform->intValue("zoom"), 1);
        // The clip (the container) was edited in place and now holds the new child.
        QVERIFY(clip->getMapNodeByKey("transform") != oldTransform);
        QCOMPARE(clip->getMapNodeByKey("transform")->intValue("zoom"), 4);
    }

    // A list command for a list below a clip travels: root finds the list and its
    // container (the clip), copies the clip, finds the fresh list, and the list
    // copies its container once more before editing. The edit must land in the list
    // the tree holds after that second copy.
    void listCommandsBelowAClipReachTheTree()
    {
        const NLMapNodePtr root = makeRoot();
        NLMapNode *clip = mapAt(root, "c1");
        const NLListNodePtr oldSpeed = clip->getListNodeByID("c1#variableSpeed");
        const NLMapNodePtr oldPoint = oldSpeed->getNode("v1");

        send(root, EditCommand::AppendNode, "c1#variableSpeed", R"({"id": "v2", "original_pos": 1, "value": 2})");
        QCOMPARE(ids(listAt(root, "c1#variableSpeed")), QStringList({"v1", "v2"}));
        QCOMPARE(JSBasicClip(mapAt(root, "c1")->clone()).variableSpeed().size(), 2);
        QCOMPARE(listAt(root, "c1#variableSpeed")->nodeList().at(1)->timelineDir(), QStringLiteral("/p"));
        QCOMPARE(ids(oldSpeed.data()), QStringList({"v1"}));
        QCOMPARE(oldSpeed->getNode("v1"), oldPoint);

        send(root, EditCommand::RemoveNode, "c1#variableSpeed", R"({"id": "v1"})");
        QCOMPARE(ids(listAt(root, "c1#variableSpeed")), QStringList({"v2"}));
        QCOMPARE(ids(oldSpeed.data()), QStringList({"v1"}));

        send(root, EditCommand::ResetList, "c1#variableSpeed",
             R"([{"id": "a", "value": 0.5}, {"id": "b", "value": 3}, {"id": "c"}])");
        QCOMPARE(ids(listAt(root, "c1#variableSpeed")), QStringList({"a", "b", "c"}));
        QCOMPARE(listAt(root, "c1#variableSpeed")->getNode("b")->floatValue("value"), 3.0f);
        QCOMPARE(oldPoint->floatValue("value"), 1.0f);

        // The same for a list below a track and for a list directly below the root.
        const NLListNodePtr oldClips = mapAt(root, "t1")->getListNodeByID("t1#clips");
        send(root, EditCommand::AppendNode, "t1#clips", R"({"id": "c3", "file_path": "c.mp4"})");
        QCOMPARE(ids(listAt(root, "t1#clips")), QStringList({"c1", "c2", "c3"}));
        QCOMPARE(mapAt(root, "c3")->pathValue("file_path"), QStringLiteral("/p/c.mp4"));
        QCOMPARE(ids(oldClips.data()), QStringList({"c1", "c2"}));
        send(root, EditCommand::ResetList, "t2#clips", R"([{"id": "x1"}, {"id": "x2"}])");
        QCOMPARE(ids(listAt(root, "t2#clips")), QStringList({"x1", "x2"}));
        const NLListNodePtr oldTracks = root->getListNodeByID("/#tracks");
        send(root, EditCommand::RemoveNode, "/#tracks", R"({"id": "t1"})");
        QCOMPARE(ids(listAt(root, "/#tracks")), QStringList({"t2"}));
        QCOMPARE(ids(oldTracks.data()), QStringList({"t1", "t2"}));
        QVERIFY(!mapAt(root, "c3"));
    }

    void listEditsFollowTheirRules()
    {
        const NLMapNodePtr root = makeRoot();
        send(root, EditCommand::AppendNode, "t1#clips", R"({"id": "c1", "copy": true})");
        QCOMPARE(ids(listAt(root, "t1#clips")), QStringList({"c1", "c2", "c1"})); // ids are not checked
        send(root, EditCommand::RemoveNode, "t1#clips", R"({"id": "c1"})");
        QCOMPARE(ids(listAt(root, "t1#clips")), QStringList({"c2", "c1"})); // only the first
        QVERIFY(listAt(root, "t1#clips")->nodeList().at(1)->boolValue("copy"));
        send(root, EditCommand::RemoveNode, "t1#clips", R"({"id": "absent"})");
        QCOMPARE(ids(listAt(root, "t1#clips")), QStringList({"c2", "c1"}));

        // A reset keeps the element of an id that stays.
        const NLMapNodePtr kept = listAt(root, "t1#clips")->getNode("c2");
        NLListNode *clips = listAt(root, "t1#clips");
        clips->processCommand(EditCommand{EditCommand::ResetList, "t1#clips", R"([{"id": "c2", "v": 1}, {"id": "n"}])"}, nullptr);
        QCOMPARE(ids(clips), QStringList({"c2", "n"}));
        QCOMPARE(clips->getNode("c2"), kept);
        QCOMPARE(kept->intValue("v"), 1);

        // A list handed a command for an element edits it without copying.
        const NLMapNodePtr element = clips->getNode("n");
        clips->processCommand(EditCommand{EditCommand::ModifyNode, "n", R"({"w": 5})"}, nullptr);
        QCOMPARE(clips->getNode("n"), element);
        QCOMPARE(element->intValue("w"), 5);
    }

    void badCommandsAreSilentAndHarmless()
    {
        const NLMapNodePtr root = makeRoot();
        const QString before = root->toJson();
        send(root, EditCommand::ModifyNode, "nobody", R"({"x": 1})");
        send(root, EditCommand::AppendNode, "nobody#list", R"({"x": 1})");
        send(root, 7, "c1", R"({"x": 1})");
        send(root, -1, "t1#clips", R"({"id": "c1"})");
        send(root, EditCommand::ModifyNode, "t1#clips", R"({"x": 1})"); // map kind for a list
        send(root, EditCommand::AppendNode, "c1", R"({"id": "x"})");     // list kind for a map
        send(root, EditCommand::ResetList, "/", "[]");
        QCOMPARE(root->toJson(), before);

        // Text that does not parse gives an empty map or list.
        send(root, EditCommand::ModifyNode, "c2", "{broken");
        QCOMPARE(root->toJson(), before);
        send(root, EditCommand::AppendNode, "t1#clips", "{broken");
        QCOMPARE(ids(listAt(root, "t1#clips")), QStringList({"c1", "c2", ""}));
        QVERIFY(listAt(root, "t1#clips")->nodeList().at(2)->toMap().isEmpty());
        send(root, EditCommand::RemoveNode, "t1#clips", "not json");
        QCOMPARE(ids(listAt(root, "t1#clips")), QStringList({"c1", "c2"}));
        send(root, EditCommand::ResetList, "c1#variableSpeed", R"({"id": "an object, not an array"})");
        QVERIFY(listAt(root, "c1#variableSpeed")->nodeList().isEmpty());
        send(root, EditCommand::ResetNode, "tr1", "[1, 2]");
        QVERIFY(mapAt(root, "c1")->getMapNodeByKey("transform")->toMap().isEmpty());
        QVERIFY(!mapAt(root, "tr1"));

        // Still a working tree.
        send(root, EditCommand::ModifyNode, "c2", R"({"ok": true})");
        QVERIFY(mapAt(root, "c2")->boolValue("ok"));
        // The first node without id in pre-order ("preview_param") answers to "".
        send(root, EditCommand::ModifyNode, "", R"({"x": 1})");
        QCOMPARE(root->getMapNodeByKey("preview_param")->intValue("x"), 1);
    }
};

QTEST_GUILESS_MAIN(TstModelEditCommand)
#include "tst_model_editcommand.moc"
