#include "Model/NLListNode.h"
#include "Model/NLMapNode.h"
#include "Model/TimelineFiles.h"

#include <QtTest>

using namespace Veloran;

namespace {

const char *kDocument = R"({
  "id": "/",
  "preview_param": {"timeline_dir": "/home/u/proj"},
  "name": "demo",
  "count": 3,
  "big": 5000000000,
  "ratio": 0.25,
  "flag": true,
  "tracks": [
    {"id": "t1", "clips": [
      {"id": "c1", "file_path": "media/a.mp4", "transform": {"id": "tr1", "zoom": 1.5}},
      {"id": "c2", "file_path": ":/res/b.png"}
    ]},
    {"id": "t2", "clips": []}
  ],
  "numbers": [1, "two", true],
  "nested": [[1, 2], [{"id": "deep"}]],
  "settings": {"id": "s", "level": 2}
})";

NLMapNodePtr makeRoot(const QString &json = QString::fromUtf8(kDocument))
{
    return NLMapNodePtr(new NLMapNode(json));
}

NLMapNode *asMap(INode *node)
{
    return dynamic_cast<NLMapNode *>(node);
}

} // namespace

class TstModelNodeTree : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void parsesObjectsIntoMapNodesAndArraysIntoLists()
    {
        const NLMapNodePtr root = makeRoot();
        QCOMPARE(root->tagID(), QStringLiteral("/"));
        QCOMPARE(root->timelineDir(), QStringLiteral("/home/u/proj"));

        const NLListNodePtr tracks = root->getListNodeByID("/#tracks");
        QVERIFY(tracks);
        QCOMPARE(tracks->nodeList().size(), 2);
        const NLMapNodePtr t1 = tracks->getNode("t1");
        QVERIFY(t1);
        const NLListNodePtr clips = t1->getListNodeByID("t1#clips");
        QVERIFY(clips);
        QCOMPARE(clips->nodeList().size(), 2);
        QCOMPARE(clips->nodeList().at(1)->tagID(), QStringLiteral("c2"));
        QVERIFY(tracks->getNode("t2")->getListNodeByID("t2#clips")->nodeList().isEmpty());

        // Every node of the tree carries the root's directory, however deep.
        const NLMapNodePtr transform = clips->getNode("c1")->getMapNodeByKey("transform");
        QVERIFY(transform);
        QCOMPARE(transform->timelineDir(), QStringLiteral("/home/u/proj"));
        QCOMPARE(clips->timelineDir(), QStringLiteral("/home/u/proj"));

        // Arrays of non-objects give empty map nodes, one per element.
        const NLListNodePtr numbers = root->getListNodeByID("/#numbers");
        QVERIFY(numbers);
        QCOMPARE(numbers->nodeList().size(), 3);
        for (const NLMapNodePtr &element : numbers->nodeList()) {
            QVERIFY(element->toMap().isEmpty());
            QCOMPARE(element->tagID(), QString());
        }
        // An array directly inside an array is no node of its own.
        const NLListNodePtr nested = root->getListNodeByID("/#nested");
        QCOMPARE(nested->nodeList().size(), 2);
        QVERIFY(nested->nodeList().at(1)->toMap().isEmpty());
        INode *parent = nullptr;
        QVERIFY(!root->findNode("deep", &parent));

        QVERIFY(root->getMapNodeByKey("settings"));
        QCOMPARE(root->getMapNodeByKey("settings")->intValue("level"), 2);
        QVERIFY(!root->getMapNodeByKey("tracks"));
        QVERIFY(!root->getMapNodeByKey("name"));
        QVERIFY(!root->getMapNodeByKey("missing"));
        QVERIFY(!root->getListNodeByID("t1#clips")); // only direct children
    }

    void gettersConvertAndReportAbsence()
    {
        const NLMapNodePtr root = makeRoot();
        QCOMPARE(root->opIntValue("count"), std::optional<int>(3));
        QCOMPARE(root->opStringValue("count"), std::optional<QString>(QStringLiteral("3")));
        QCOMPARE(root->opInt64Value("big"), std::optional<qint64>(Q_INT64_C(5000000000)));
        QCOMPARE(root->opDoubleValue("ratio"), std::optional<double>(0.25));
        QCOMPARE(root->opFloatValue("ratio"), std::optional<float>(0.25f));
        QCOMPARE(root->opBoolValue("flag"), std::optional<bool>(true));
        QVERIFY(!root->opIntValue("missing").has_value());
        QVERIFY(!root->opStringValue("missing").has_value());
        QVERIFY(!root->opBoolValue("missing").has_value());

        QCOMPARE(root->intValue("missing"), 0);
        QCOMPARE(root->int64Value("missing"), 0);
        QCOMPARE(root->stringValue("missing"), QString());
        QCOMPARE(root->boolValue("missing"), false);
        QCOMPARE(root->floatValue("missing"), 0.0f);
        QCOMPARE(root->intValue("name"), 0); // not a number: QVariant rules

        root->setValue("hole", QVariant());
        QVERIFY(!root->opIntValue("hole").has_value());
        QVERIFY(!root->opStringValue("hole").has_value());
        root->setValue("zero", 0);
        QCOMPARE(root->opIntValue("zero"), std::optional<int>(0));
    }

    void resetKeepsNodeIdentity()
    {
        const NLMapNodePtr root = makeRoot();
        const NLListNodePtr tracks = root->getListNodeByID("/#tracks");
        const NLMapNodePtr t1 = tracks->getNode("t1");
        const NLListNodePtr clips = t1->getListNodeByID("t1#clips");
        const NLMapNodePtr c1 = clips->getNode("c1");
        const NLMapNodePtr c2 = clips->getNode("c2");
        const NLMapNodePtr transform = c1->getMapNodeByKey("transform");
        const NLMapNodePtr settings = root->getMapNodeByKey("settings");

        root->resetNode(jsonToVariantMap(R"({
          "id": "/", "preview_param": {"timeline_dir": "/other"},
          "tracks": [{"id": "t1", "clips": [
            {"id": "c2", "file_path": "moved.mp4"},
            {"id": "c3"},
            {"id": "c1", "transform": {"id": "tr1", "zoom": 3}}]}]
        })"));

        QCOMPARE(root->timelineDir(), QStringLiteral("/other"));
        QCOMPARE(root->getListNodeByID("/#tracks"), tracks);
        QCOMPARE(tracks->nodeList().size(), 1);
        QCOMPARE(tracks->getNode("t1"), t1);
        QCOMPARE(t1->getListNodeByID("t1#clips"), clips);
        QCOMPARE(clips->nodeList().size(), 3);
        QCOMPARE(clips->nodeList().at(0), c2);
        QCOMPARE(clips->nodeList().at(2), c1);
        QCOMPARE(c2->stringValue("file_path"), QStringLiteral("moved.mp4"));
        QCOMPARE(c2->pathValue("file_path"), QStringLiteral("/other/moved.mp4"));
        QCOMPARE(c1->getMapNodeByKey("transform"), transform);
        QCOMPARE(transform->floatValue("zoom"), 3.0f);
        QCOMPARE(transform->timelineDir(), QStringLiteral("/other"));
        QVERIFY(!c1->opStringValue("file_path").has_value()); // key dropped by the reset

        // Keys missing from the new map disappear with their children.
        QVERIFY(!root->getMapNodeByKey("settings"));
        QVERIFY(!root->opStringValue("name").has_value());
        QCOMPARE(settings->intValue("level"), 2); // a holder keeps the dropped node
    }

    void modifyStoresPlainValues()
    {
        const NLMapNodePtr root = makeRoot();
        root->modifyNode(jsonToVariantMap(R"({"name": "renamed", "extra": {"id": "inner"}, "more": [{"id": "m"}]})"));
        QCOMPARE(root->stringValue("name"), QStringLiteral("renamed"));
        QCOMPARE(root->intValue("count"), 3);
        QVERIFY(!root->getMapNodeByKey("extra"));
        QCOMPARE(root->toMap().value("extra").userType(), int(QMetaType::QVariantMap));
        INode *parent = nullptr;
        QVERIFY(!root->findNode("inner", &parent));
        QVERIFY(!root->findNode("m", &parent));
        QVERIFY(!root->getListNodeByID("/#more"));
    }

    void resolvesPathsAgainstTheTimelineDirectory()
    {
        const NLMapNodePtr root = makeRoot(R"({"id": "/", "preview_param": {"timeline_dir": "/home/u/proj"},
            "res": ":/a/b", "drive": "C:/a/b.mp4", "rel": "media/a.mp4", "abs": "/x/y.mp4",
            "two": "ab", "driveOnly": "C:", "empty": "",
            "tracks": [{"id": "t", "clips": [{"id": "c", "file_path": "clip.mov"}]}]})");
        QCOMPARE(root->pathValue("res"), QStringLiteral(":/a/b"));
        QCOMPARE(root->pathValue("drive"), QStringLiteral("C:/a/b.mp4"));
        QCOMPARE(root->pathValue("rel"), QStringLiteral("/home/u/proj/media/a.mp4"));
        QCOMPARE(root->pathValue("abs"), QStringLiteral("/home/u/proj/x/y.mp4"));
        QCOMPARE(root->pathValue("two"), QStringLiteral("/home/u/proj/ab"));
        QCOMPARE(root->pathValue("driveOnly"), QStringLiteral("/home/u/proj/C:"));
        QCOMPARE(root->pathValue("empty"), QString());
        QCOMPARE(root->pathValue("missing"), QString());
        INode *parent = nullptr;
        QCOMPARE(asMap(root->findNode("c", &parent))->pathValue("file_path"), QStringLiteral("/home/u/proj/clip.mov"));

        // Without "preview_param" the root has no directory and paths stay as stored.
        const NLMapNodePtr bare = makeRoot(R"({"id": "/", "rel": "media/a.mp4", "abs": "/x/y.mp4"})");
        QCOMPARE(bare->timelineDir(), QString());
        QCOMPARE(bare->pathValue("rel"), QStringLiteral("media/a.mp4"));
        QCOMPARE(bare->pathValue("abs"), QStringLiteral("/x/y.mp4"));

        // Only the root "/" reads the directory from its document.
        const NLMapNodePtr notRoot = makeRoot(R"({"id": "x", "preview_param": {"timeline_dir": "/d"}, "rel": "a"})");
        QCOMPARE(notRoot->pathValue("rel"), QStringLiteral("a"));
    }

    void findsNodesDepthFirstWithTheirContainer()
    {
        const NLMapNodePtr root = makeRoot();
        INode *parent = reinterpret_cast<INode *>(0x1);
        QCOMPARE(root->findNode("/", &parent), static_cast<INode *>(root.data()));
        QCOMPARE(parent, static_cast<INode *>(nullptr));

        const NLListNodePtr tracks = root->getListNodeByID("/#tracks");
        const NLMapNodePtr t1 = tracks->getNode("t1");
        const NLListNodePtr clips = t1->getListNodeByID("t1#clips");
        const NLMapNodePtr c1 = clips->getNode("c1");

        QCOMPARE(root->findNode("c1", &parent), static_cast<INode *>(c1.data()));
        QCOMPARE(parent, static_cast<INode *>(clips.data()));
        QCOMPARE(root->findNode("t1#clips", &parent), static_cast<INode *>(clips.data()));
        QCOMPARE(parent, static_cast<INode *>(t1.data()));
        QCOMPARE(root->findNode("tr1", &parent), static_cast<INode *>(c1->getMapNodeByKey("transform").data()));
        QCOMPARE(parent, static_cast<INode *>(c1.data()));
        QCOMPARE(root->findNode("/#tracks", &parent), static_cast<INode *>(tracks.data()));
        QCOMPARE(parent, static_cast<INode *>(root.data()));
        QVERIFY(!root->findNode("nobody", &parent));
        QVERIFY(root->findNode("c1", nullptr)); // a null out-pointer is tolerated

        // First hit in pre-order wins: keys are walked in order ("a" before "b").
        const NLMapNodePtr twins = makeRoot(R"({"id": "/", "b": {"id": "dup", "side": "b"}, "a": [{"id": "dup", "side": "a"}]})");
        QCOMPARE(asMap(twins->findNode("dup", &parent))->stringValue("side"), QStringLiteral("a"));
        QCOMPARE(parent, static_cast<INode *>(twins->getListNodeByID("/#a").data()));
    }

    void cloneAndCopyOnWriteShareNoNodes()
    {
        const NLMapNodePtr root = makeRoot();
        const NLMapNodePtr copy = root->clone();
        QCOMPARE(copy->toJson(), root->toJson());
        QCOMPARE(copy->timelineDir(), root->timelineDir());
        QVERIFY(copy->getListNodeByID("/#tracks") != root->getListNodeByID("/#tracks"));
        INode *parent = nullptr;
        asMap(copy->findNode("c1", &parent))->setValue("file_path", "changed");
        QCOMPARE(asMap(root->findNode("c1", &parent))->stringValue("file_path"), QStringLiteral("media/a.mp4"));

        const NLListNodePtr tracksBefore = root->getListNodeByID("/#tracks");
        const NLMapNodePtr settingsBefore = root->getMapNodeByKey("settings");
        const QString before = root->toJson();
        root->copyOnWrite();
        QCOMPARE(root->toJson(), before);
        QVERIFY(root->getListNodeByID("/#tracks") != tracksBefore);
        QVERIFY(root->getMapNodeByKey("settings") != settingsBefore);
        QCOMPARE(root->getListNodeByID("/#tracks")->tagID(), QStringLiteral("/#tracks"));

        const QList<NLMapNodePtr> elementsBefore = tracksBefore->nodeList();
        tracksBefore->copyOnWrite();
        QCOMPARE(tracksBefore->nodeList().size(), elementsBefore.size());
        QVERIFY(tracksBefore->nodeList().at(0) != elementsBefore.at(0));
        QCOMPARE(tracksBefore->nodeList().at(0)->toJson(), elementsBefore.at(0)->toJson());
    }

    void writesJsonAndRegistersMetaTypes()
    {
        const NLMapNodePtr root = makeRoot();
        const QVariantMap plain = root->toJsonMap();
        QCOMPARE(plain.value("tracks").userType(), int(QMetaType::QVariantList));
        QCOMPARE(plain.value("settings").userType(), int(QMetaType::QVariantMap));
        QCOMPARE(root->toMap().value("tracks").userType(), QMetaType::type("Veloran::NLListNodePtr"));
        QCOMPARE(root->toMap().value("settings").userType(), QMetaType::type("Veloran::NLMapNodePtr"));
        QVERIFY(QMetaType::type("Veloran::NLMapNodePtr") != QMetaType::UnknownType);

        // The text parses back into the same document (non-object array elements as {}).
        const QString json = root->toJson();
        QVERIFY(json.contains('\n')); // indented
        const NLMapNodePtr again(new NLMapNode(json));
        QCOMPARE(again->toJson(), json);
        const QVariantList tracks = jsonToVariantMap(json).value("tracks").toList();
        QCOMPARE(tracks.size(), 2);
        const QVariantMap c1 = tracks.at(0).toMap().value("clips").toList().at(0).toMap();
        QCOMPARE(c1.value("transform").toMap().value("zoom").toDouble(), 1.5);
        QCOMPARE(jsonToVariantMap(json).value("numbers").toList(), QVariantList({QVariantMap(), QVariantMap(), QVariantMap()}));

        const QVariantList list = root->getListNodeByID("/#tracks")->toJsonList();
        QCOMPARE(list.size(), 2);
        QCOMPARE(list.at(0).toMap().value("clips").userType(), int(QMetaType::QVariantList));
        const QVariantList raw = root->getListNodeByID("/#tracks")->toList();
        QCOMPARE(raw.at(0).toMap().value("clips").userType(), QMetaType::type("Veloran::NLListNodePtr"));
    }

    void badJsonGivesAnEmptyUsableNode()
    {
        for (const QString &text : {QStringLiteral("{not json"), QStringLiteral("[1, 2]"), QString(),
                                    QStringLiteral("\"text\""), QStringLiteral("{\"a\": [1, 2")}) {
            NLMapNode node(text);
            QCOMPARE(node.tagID(), QString());
            QVERIFY(node.toMap().isEmpty());
            INode *parent = nullptr;
            QCOMPARE(node.findNode("", &parent), static_cast<INode *>(&node));
            QVERIFY(!node.findNode("x", &parent));
            QCOMPARE(jsonToVariantMap(node.toJson()), QVariantMap());
            node.setValue("k", 1);
            QCOMPARE(node.intValue("k"), 1);
        }
        NLListNode list("l", "/d", jsonToVariantList("not a list"));
        QVERIFY(list.nodeList().isEmpty());
        QCOMPARE(list.tagID(), QStringLiteral("l"));
    }
};

QTEST_GUILESS_MAIN(TstModelNodeTree)
#include "tst_model_nodetree.moc"
