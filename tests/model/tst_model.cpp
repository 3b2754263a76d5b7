#include "LogCapture.h"
#include "RandomTimeline.h"

#include "Model/EditCommand.h"
#include "Model/JSPicClip.h"
#include "Model/JSVideoClip.h"
#include "Model/NLListNode.h"
#include "Model/NLMapNode.h"
#include "Model/TimelineFiles.h"
#include "VeloranDec/VideoFrame.h"

#include <QtTest>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <random>

using namespace Veloran;

namespace {

const char *kDocument = R"({
  "id": "/", "preview_param": {"timeline_dir": "/p"},
  "title": "demo", "count": 3, "big": 5000000000, "ratio": 0.25,
  "tracks": [
    {"id": "t1", "clips": [
      {"id": "c1", "file_path": "a.mp4", "transform": {"id": "tr1", "zoom": 1},
       "variableSpeed": [{"id": "v1", "original_pos": 0, "value": 1}]},
      {"id": "c2", "file_path": "b.mp4"}]},
    {"id": "t2", "clips": []}],
  "numbers": [1, "two", [{"id": "deep"}]], "twins": [{"id": "w", "n": 1}, {"id": "w", "n": 2}],
  "settings": {"id": "s", "level": 2}
})";

NLMapNodePtr makeRoot(const char *json = kDocument)
{
    return NLMapNodePtr(new NLMapNode(QString::fromUtf8(json)));
}

// The node with `id` as the root sees it now, and its container.
INode *find(const NLMapNodePtr &root, const QString &id, INode **parent = nullptr)
{
    INode *ignored = nullptr;
    return root->findNode(id, parent ? parent : &ignored);
}
NLMapNode *mapAt(const NLMapNodePtr &root, const QString &id) { return dynamic_cast<NLMapNode *>(find(root, id)); }
NLListNode *listAt(const NLMapNodePtr &root, const QString &id) { return dynamic_cast<NLListNode *>(find(root, id)); }

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

struct Point
{
    double pos;
    double speed;
};

qint64 lengthOf(qint64 rangeBegin, qint64 rangeLength, qint64 originalLength, const QList<Point> &points)
{
    QVariantList curve;
    for (const Point &point : points)
        curve << QVariantMap{{"original_pos", point.pos}, {"value", point.speed}};
    return JSBasicClip(NLMapNodePtr(new NLMapNode(QVariantMap{{"range_begin", rangeBegin}, {"range_length", rangeLength},
                                                              {"original_length", originalLength}, {"variableSpeed", curve}})))
        .timelineLength();
}

// Where the speed curve of a piece [p, q] from vp to vq passes 1: the Bézier d0, d0,
// d1, d1 of the weighted speeds (slow-downs count ten times) crosses zero at t, found
// by bisection, and the source position follows the Bézier p, m, m, q there.
double crossing(double vp, double vq, double p, double q)
{
    const double d0 = vp < 1 ? (vp - 1) * 10 : vp - 1, d1 = vq < 1 ? (vq - 1) * 10 : vq - 1;
    auto bezier = [](double t, double a, double b, double c, double d) {
        const double u = 1 - t;
        return u * u * u * a + 3 * u * u * t * b + 3 * u * t * t * c + t * t * t * d;
    };
    double lo = 0.0, hi = 1.0;
    for (int k = 0; k < 60; ++k)
        ((bezier((lo + hi) / 2, d0, d0, d1, d1) < 0) == (d0 < 0) ? lo : hi) = (lo + hi) / 2;
    return bezier(lo, p, (p + q) / 2, (p + q) / 2, q);
}

// Time spent on source [from, to] of a piece [p, q] that accelerates uniformly in time
// from vp to vq (so v² = vp² + (vq² - vp²)(x - p)/(q - p)), by Simpson's rule over 1/v.
double integratePiece(double vp, double vq, double p, double q, double from, double to)
{
    from = std::max(from, p);
    to = std::min(to, q);
    auto invSpeed = [&](double x) { return 1.0 / std::sqrt(std::max(vp * vp + (vq * vq - vp * vp) * (x - p) / (q - p), 1e-12)); };
    const double h = (to - from) / 2000;
    double sum = invSpeed(from) + invSpeed(to);
    for (int i = 1; i < 2000; ++i)
        sum += invSpeed(from + i * h) * (i % 2 ? 4.0 : 2.0);
    return to > from ? sum * h / 3.0 : 0.0;
}

// Every map node of a tree, in search order.
void collect(const NLMapNodePtr &node, QList<NLMapNodePtr> &nodes);
void collect(const NLListNodePtr &list, QList<NLMapNodePtr> &nodes)
{
    for (const NLMapNodePtr &element : list ? list->nodeList() : QList<NLMapNodePtr>())
        collect(element, nodes);
}
void collect(const NLMapNodePtr &node, QList<NLMapNodePtr> &nodes)
{
    nodes << node;
    for (const QVariant &value : node->toMap()) {
        if (const NLMapNodePtr child = NLMapNode::mapChild(value))
            collect(child, nodes);
        collect(NLMapNode::listChild(value), nodes);
    }
}

// What a holder of these nodes sees: their JSON and directories.
QString look(const QVariant &json, const QList<NLMapNodePtr> &nodes)
{
    QStringList dirs;
    for (const NLMapNodePtr &node : nodes)
        dirs << node->timelineDir();
    return variantMapToJson({{"json", json}, {"dirs", dirs}}, false);
}

QString look(const NLMapNodePtr &node)
{
    QList<NLMapNodePtr> nodes;
    collect(node, nodes);
    return look(node->toJsonMap(), nodes);
}

// What a renderer reads from a frame.
QString look(const VideoFrame &frame)
{
    QVariantList filters;
    for (const QVariantMap &filter : frame.filters())
        filters << filter;
    return variantMapToJson({{"transform", frame.transformMap()}, {"filters", filters}, {"alpha", frame.alpha()},
                             {"path", JSBasicClip(frame.clipNode()).filePath()}}, false);
}

QSharedPointer<VideoFrame> frameOf(const NLMapNodePtr &clip)
{
    QSharedPointer<VideoFrame> frame(new VideoFrame(AVFramePtr(), 0));
    frame->setPts(clip->int64Value("timeline_pos") + 700);
    frame->setClipNode(clip);
    return frame;
}

// A document edits go through: a map root or a list root.
struct Tree
{
    NLMapNodePtr map;
    NLListNodePtr list;

    void send(const EditCommand &command) const
    {
        map ? map->processCommand(command, nullptr) : list->processCommand(command, nullptr);
    }
    void setTimelineDir(const QString &dir) const { map ? map->setTimelineDir(dir) : list->setTimelineDir(dir); }
    Tree deepCopy() const { return {map ? map->clone() : NLMapNodePtr(), list ? list->clone() : NLListNodePtr()}; }
    QStringList ids() const { return map ? RandomTimeline::ids(map) : RandomTimeline::ids(list); }
    QList<NLMapNodePtr> mapNodes() const
    {
        QList<NLMapNodePtr> nodes;
        map ? collect(map, nodes) : collect(list, nodes);
        return nodes;
    }
    QString look() const { return ::look(map ? QVariant(map->toJsonMap()) : QVariant(list->toJsonList()), mapNodes()); }
};

// Something that holds part of a document, how it looks and how it looked last.
struct Holder
{
    QString name;
    std::function<QString()> look;
    QString shown;
    int tree; // the index of the tree this holder is, or -1
};

} // namespace

class TstModel : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void parsesATreeFindsNodesAndWritesItBack()
    {
        const NLMapNodePtr root = makeRoot();
        const NLListNodePtr tracks = root->getListNodeByID("/#tracks");
        const NLListNodePtr clips = tracks->getNode("t1")->getListNodeByID("t1#clips");
        QCOMPARE(ids(clips.data()), QStringList({"c1", "c2"}));
        QVERIFY(tracks->getNode("t2")->getListNodeByID("t2#clips")->nodeList().isEmpty());
        // Every node carries the root's directory, however deep.
        QCOMPARE(clips->getNode("c1")->getMapNodeByKey("transform")->timelineDir(), QStringLiteral("/p"));
        QVERIFY(!find(root, "deep")); // an array inside an array is no node
        QVERIFY(!root->getMapNodeByKey("tracks") && !root->getMapNodeByKey("title"));
        QVERIFY(!root->getListNodeByID("t1#clips")); // only direct children

        // Nodes come with their container.
        INode *parent = reinterpret_cast<INode *>(0x1);
        QVERIFY(find(root, "/", &parent) == root.data() && parent == nullptr);
        QVERIFY(find(root, "c2", &parent) == clips->getNode("c2").data() && parent == clips.data());
        QVERIFY(find(root, "t1#clips", &parent) == clips.data() && parent == tracks->getNode("t1").data());
        QVERIFY(root->findNode("c1", nullptr)); // a null out-pointer is tolerated
        // The first hit in pre-order wins; keys are walked in order ("a" before "b").
        const NLMapNodePtr twins = makeRoot(R"({"id": "/", "b": {"id": "x", "side": "b"}, "a": [{"id": "x", "side": "a"}]})");
        QCOMPARE(mapAt(twins, "x")->stringValue("side"), QStringLiteral("a"));

        // Written back as plain JSON that parses into the same tree; non-objects in lists become empty maps.
        const QString json = root->toJson();
        QCOMPARE(NLMapNode(json).toJson(), json);
        QCOMPARE(jsonToVariantMap(json).value("numbers").toList(), QVariantList({QVariantMap(), QVariantMap(), QVariantMap()}));
    }

    void valuesConvertAndPathsResolveAgainstTheTimelineDir()
    {
        const NLMapNodePtr root = makeRoot();
        QCOMPARE(root->opInt64Value("big"), std::optional<qint64>(Q_INT64_C(5000000000)));
        QVERIFY(!root->opIntValue("missing").has_value() && root->intValue("missing") == 0 && root->intValue("title") == 0);
        root->setValue("hole", QVariant()); // a null value reads as absent, a zero as present
        root->setValue("zero", 0);
        QVERIFY(!root->opIntValue("hole").has_value() && root->opIntValue("zero") == 0);

        const NLMapNodePtr paths = makeRoot(R"({"id": "/", "preview_param": {"timeline_dir": "/home/u"},
            "res": ":/a/b", "drive": "C:/a/b.mp4", "rel": "media/a.mp4", "abs": "/x/y.mp4", "empty": ""})");
        const QStringList expected{":/a/b", "C:/a/b.mp4", "/home/u/media/a.mp4", "/home/u/x/y.mp4", ""};
        QCOMPARE(QStringList({paths->pathValue("res"), paths->pathValue("drive"), paths->pathValue("rel"),
                              paths->pathValue("abs"), paths->pathValue("empty")}), expected);
        QCOMPARE(mapAt(root, "c1")->pathValue("file_path"), QStringLiteral("/p/a.mp4"));
        // Only a root "/" with "preview_param" has a directory.
        QCOMPARE(makeRoot(R"({"id": "/", "rel": "a"})")->pathValue("rel"), QStringLiteral("a"));
        QCOMPARE(makeRoot(R"({"id": "x", "preview_param": {"timeline_dir": "/d"}, "rel": "a"})")->pathValue("rel"),
                 QStringLiteral("a"));
    }

    void resetBuildsNewNodesAndModifyStoresPlainValues()
    {
        const NLMapNodePtr root = makeRoot();
        root->resetNode(jsonToVariantMap(R"({"id": "/", "preview_param": {"timeline_dir": "/other"},
          "tracks": [{"id": "t1", "clips": [{"id": "c3"}, {"id": "c1", "transform": {"id": "tr1", "zoom": 3}}]}]})"));
        QCOMPARE(ids(listAt(root, "t1#clips")), QStringList({"c3", "c1"}));
        QVERIFY(mapAt(root, "tr1")->floatValue("zoom") == 3.0f && mapAt(root, "tr1")->timelineDir() == "/other");
        QVERIFY(!mapAt(root, "c1")->opStringValue("file_path").has_value());
        QVERIFY(!root->getMapNodeByKey("settings")); // keys missing from the new map go with their children

        root->modifyNode(jsonToVariantMap(R"({"title": "renamed", "extra": {"id": "inner"}, "more": [{"id": "m"}]})"));
        QCOMPARE(root->stringValue("title"), QStringLiteral("renamed"));
        QCOMPARE(root->toMap().value("extra").userType(), int(QMetaType::QVariantMap));
        QVERIFY(!find(root, "inner") && !find(root, "m"));
    }

    void badJsonGivesAnEmptyUsableNode()
    {
        for (const QString &text : {QStringLiteral("{not json"), QStringLiteral("[1, 2]"), QString()}) {
            NLMapNode node(text);
            QVERIFY(node.tagID().isEmpty() && node.toMap().isEmpty() && !node.findNode("x", nullptr));
            node.setValue("k", 1);
            QCOMPARE(node.intValue("k"), 1);
        }
        QVERIFY(NLListNode("l", "/d", jsonToVariantList("not a list")).nodeList().isEmpty());
    }

    // Each row is one command on a fresh document and what it leaves at one node: the
    // ids of a list (no key), one value of a map, or (no node) the document unchanged.
    // That holders of the old nodes see no edit is for editsShowOnlyThroughTheirHolder.
    void editsReachTheirTarget_data()
    {
        QTest::addColumn<qint32>("kind");
        QTest::addColumn<QString>("target");
        QTest::addColumn<QString>("content");
        QTest::addColumn<QString>("node");
        QTest::addColumn<QString>("key");
        QTest::addColumn<QVariant>("expected");
        const qint32 modify = EditCommand::ModifyNode, reset = EditCommand::ResetNode, append = EditCommand::AppendNode,
                     remove = EditCommand::RemoveNode, resetList = EditCommand::ResetList;
        QTest::newRow("modify root") << modify << "/" << R"({"title": "renamed"})" << "/" << "title" << QVariant("renamed");
        QTest::newRow("modify clip") << modify << "c1" << R"({"file_path": "n.mp4"})" << "c1" << "file_path" << QVariant("n.mp4");
        QTest::newRow("modify nested") << modify << "tr1" << R"({"zoom": 4})" << "tr1" << "zoom" << QVariant(4);
        QTest::newRow("reset root") << reset << "/" << R"({"id": "/", "tracks": [{"id": "t9"}]})" << "/#tracks" << "" << QVariant("t9");
        QTest::newRow("append") << append << "c1#variableSpeed" << R"({"id": "v2"})" << "c1#variableSpeed" << "" << QVariant("v1 v2");
        QTest::newRow("remove") << remove << "c1#variableSpeed" << R"({"id": "v1"})" << "c1#variableSpeed" << "" << QVariant("");
        QTest::newRow("reset list") << resetList << "c1#variableSpeed" << R"([{"id": "a"}, {"id": "b"}])" << "c1#variableSpeed"
                                    << "" << QVariant("a b");
        // Ids are not checked on append, and a remove takes only the first match.
        QTest::newRow("append a twin") << append << "t1#clips" << R"({"id": "c1"})" << "t1#clips" << "" << QVariant("c1 c2 c1");
        QTest::newRow("remove a twin") << remove << "/#twins" << R"({"id": "w"})" << "w" << "n" << QVariant(2);
        QTest::newRow("remove a track") << remove << "/#tracks" << R"({"id": "t1"})" << "/#tracks" << "" << QVariant("t2");
        // Text that does not parse stands for an empty map or list.
        QTest::newRow("append broken") << append << "t1#clips" << "{broken" << "t1#clips" << "" << QVariant("c1 c2 ");
        QTest::newRow("reset list with a map") << resetList << "c1#variableSpeed" << R"({"id": "x"})" << "c1#variableSpeed"
                                               << "" << QVariant("");
        QTest::newRow("missing target") << modify << "nobody" << R"({"x": 1})" << "" << "" << QVariant();
        QTest::newRow("unknown kind") << 7 << "c1" << R"({"x": 1})" << "" << "" << QVariant();
        QTest::newRow("map kind for a list") << modify << "t1#clips" << R"({"x": 1})" << "" << "" << QVariant();
        QTest::newRow("list kind for a map") << append << "c1" << R"({"id": "x"})" << "" << "" << QVariant();
        QTest::newRow("modify broken") << modify << "c2" << "{broken" << "" << "" << QVariant();
    }

    void editsReachTheirTarget()
    {
        QFETCH(qint32, kind);
        QFETCH(QString, target);
        QFETCH(QString, content);
        QFETCH(QString, node);
        QFETCH(QString, key);
        QFETCH(QVariant, expected);
        const NLMapNodePtr root = makeRoot();
        const QString before = root->toJson();
        send(root, kind, target, content);
        QVERIFY2(node.isEmpty() || find(root, node), qPrintable(node));
        if (node.isEmpty())
            QCOMPARE(root->toJson(), before);
        else if (key.isEmpty())
            QCOMPARE(ids(listAt(root, node)).join(' '), expected.toString());
        else
            QCOMPARE(mapAt(root, node)->toMap().value(key), expected);
    }

    // A list as the root of the edit: it changes, its elements are copied.
    void aListRootTakesEdits()
    {
        const NLListNodePtr list(new NLListNode("l", "/d", jsonToVariantList(R"([{"id": "k", "v": 1}])")));
        list->processCommand(EditCommand{EditCommand::ModifyNode, "k", R"({"w": 5})"}, nullptr);
        list->processCommand(EditCommand{EditCommand::AppendNode, "l", R"({"id": "n"})"}, nullptr);
        QVERIFY(list->getNode("k")->intValue("w") == 5 && list->getNode("n")->timelineDir() == "/d");
    }

    // Random documents and commands: an edit through one tree shows through no other
    // holder (copies of the tree, a list-rooted tree over its tracks, views of its
    // nodes, frames of its clips), and gives what it gives on an unshared copy.
    void editsShowOnlyThroughTheirHolder_data()
    {
        QTest::addColumn<quint32>("seed");
        for (quint32 seed = 1; seed <= 4; ++seed)
            QTest::addRow("seed %u", seed) << seed;
    }

    void editsShowOnlyThroughTheirHolder()
    {
        QFETCH(quint32, seed);
        RandomTimeline random(seed);
        QList<Tree> trees;
        QList<Holder> holders;
        auto hold = [&](const QString &name, const std::function<QString()> &look, int tree) {
            holders.append({name, look, look(), tree});
        };
        auto addTree = [&](const QString &name, const Tree &tree) {
            trees << tree;
            hold(name, [tree] { return tree.look(); }, trees.size() - 1);
        };
        addTree("root", {NLMapNodePtr(new NLMapNode(random.document())), {}});
        addTree("copy of root", {NLMapNodePtr(new NLMapNode(trees[0].map->toMap())), {}});
        addTree("list of tracks", {{}, NLListNodePtr(new NLListNode("/#tracks", "/p", trees[0].map->getListNodeByID("/#tracks")->toList()))});

        for (int step = 0; step < 150; ++step) {
            const int editor = random.random().bounded(trees.size());
            const Tree tree = trees.at(editor);
            QString what;
            if (random.random().bounded(12) == 0) {
                what = QStringLiteral("directory /d%1").arg(step);
                tree.setTimelineDir(QStringLiteral("/d%1").arg(step));
            } else {
                const EditCommand command = random.command(tree.ids());
                what = QStringLiteral("kind %1 for %2: %3").arg(command.kind).arg(command.targetID, command.content);
                const Tree reference = tree.deepCopy();
                reference.send(command);
                tree.send(command);
                QVERIFY2(tree.look() == reference.look(), qPrintable(what));
            }
            for (Holder &holder : holders) {
                const QString now = holder.look();
                QVERIFY2(holder.tree == editor || now == holder.shown,
                         qPrintable(QStringLiteral("step %1 (%2, through tree %3) changed %4").arg(step).arg(what).arg(editor).arg(holder.name)));
                holder.shown = now;
            }

            // New holders of what the edited tree holds now (its own root aside).
            const QList<NLMapNodePtr> nodes = tree.mapNodes().mid(tree.map ? 1 : 0);
            if (!nodes.isEmpty()) {
                const NLMapNodePtr node = nodes.at(random.random().bounded(nodes.size()));
                hold("view of " + node->tagID(), [node] { return look(node); }, -1);
                if (node->getMapNodeByKey("transform")) {
                    const QSharedPointer<VideoFrame> frame = frameOf(node);
                    hold("frame of " + node->tagID(), [frame] { return look(*frame); }, -1);
                }
            }
            if (tree.map && random.random().bounded(10) == 0)
                addTree(QStringLiteral("copy %1").arg(step), {NLMapNodePtr(new NLMapNode(tree.map->toMap())), {}});
            while (holders.size() > 40) {
                const int drop = random.random().bounded(holders.size());
                if (holders.at(drop).tree < 0)
                    holders.removeAt(drop);
            }
        }
    }

    // Frames are read on a render thread while the document is edited: what they show
    // never changes under them.
    void framesReadOnAnotherThreadSeeNoEdit()
    {
        RandomTimeline random(11);
        NLMapNodePtr root;
        do
            root.reset(new NLMapNode(random.document()));
        while (RandomTimeline::clips(root).size() < 3);
        QList<QSharedPointer<VideoFrame>> frames;
        QStringList shown, clipIds;
        for (const NLMapNodePtr &clip : RandomTimeline::clips(root)) {
            frames << frameOf(clip);
            shown << look(*frames.last());
            clipIds << clip->tagID();
        }
        const QString before = root->toJson();

        std::atomic<bool> stop{false};
        std::atomic<int> reads{0}, changed{0};
        QScopedPointer<QThread> reader(QThread::create([&] {
            while (!stop.load()) {
                for (int i = 0; i < frames.size(); ++i)
                    changed += look(*frames.at(i)) != shown.at(i);
                ++reads;
            }
        }));
        reader->start();
        for (int i = 0; i < 300 || reads.load() < 20; ++i) {
            root->processCommand(random.clipCommand(clipIds.at(random.random().bounded(clipIds.size()))), nullptr);
            if (i % 50 == 49)
                root->setTimelineDir(QStringLiteral("/d%1").arg(i));
        }
        stop = true;
        reader->wait();
        QCOMPARE(changed.load(), 0);
        QVERIFY(root->toJson() != before);
    }

    void clipViewsReadValuesAndResolvePaths()
    {
        const JSVideoClip none;
        QVERIFY(none.speed() == 1.0 && none.alpha() == 1.0f && none.timelineLength() == 0);
        // Present zeros and absent values are the node's part; here the clip's defaults.
        QCOMPARE(JSVideoClip(makeRoot(R"({"id": "c"})")).backgroundStyle(), QStringLiteral("color"));

        const NLMapNodePtr root = makeRoot(R"({"id": "/", "preview_param": {"timeline_dir": "/tl"}, "tracks": [{"id": "t",
          "clips": [{"id": "c", "dir_path": "mat", "file_path": "a.mp4", "background_style": "",
          "transform": {"id": "tr", "zoom": 1}}]}]})");
        const JSVideoClip video(root->getListNodeByID("/#tracks")->getNode("t")->getListNodeByID("t#clips")->getNode("c"));
        QCOMPARE(video.backgroundStyle(), QString()); // present but empty stays empty
        QCOMPARE(QStringList({video.dirPath(), video.filePath()}), QStringList({"/tl/mat", "/tl/a.mp4"}));

        // Zoom is set only on an existing transform.
        JSPicClip pic(video.node());
        const NLMapNodePtr oldTransform = video.transform().node();
        pic.setZoom(2.5);
        QCOMPARE(mapAt(root, "tr")->opDoubleValue("zoom"), std::optional<double>(2.5));
        QCOMPARE(oldTransform->intValue("zoom"), 1); // the transform was replaced by an edited copy
        JSPicClip plain(makeRoot(R"({"id": "c"})"));
        plain.setZoom(3.0);
        QVERIFY(!plain.transform().node() && !plain.node()->toJson().contains("zoom"));
    }

    void clipKindsByTypeAndKind_data()
    {
        QTest::addColumn<QString>("type");
        QTest::addColumn<QString>("kind");
        QTest::addColumn<bool>("video");
        QTest::addColumn<bool>("audio");
        QTest::newRow("clip video") << "clip" << "video" << true << true;
        QTest::newRow("clip audio_with_cover") << "clip" << "audio_with_cover" << true << true;
        QTest::newRow("clip audio") << "clip" << "audio" << false << true;
        QTest::newRow("image audio") << "image" << "audio" << true << false;
        QTest::newRow("text") << "text" << "" << true << false;
        QTest::newRow("Clip video") << "Clip" << "video" << false << false;
    }

    void clipKindsByTypeAndKind()
    {
        QFETCH(QString, type);
        QFETCH(QString, kind);
        const JSBasicClip clip(NLMapNodePtr(new NLMapNode(QVariantMap{{"type", type}, {"kind", kind}})));
        QTEST(clip.isVideo(), "video");
        QTEST(clip.isAudio(), "audio");
    }

    void lengthsOfSimpleCurves()
    {
        auto constant = [](const QVariantMap &map) { return JSBasicClip(NLMapNodePtr(new NLMapNode(map))).timelineLength(); };
        QCOMPARE(constant({{"range_length", 1000}, {"speed", 0.3}}), 3333);
        QCOMPARE(constant({{"range_length", 1001}}), 1001);
        QCOMPARE(constant({{"range_length", 900}, {"speed", 3}, {"variableSpeed", QVariantList()}}), 300); // empty curve
        QCOMPARE(lengthOf(0, 1000, 1000, {{0.5, 2.0}}), 0); // one point makes no segment
        // An uncut piece lasts exactly 2L / (s0 + s1).
        QCOMPARE(lengthOf(0, 7000, 7000, {{0.0, 0.2}, {1.0, 0.8}}), qint64(2.0f * 7000.0f / (0.2f + 0.8f)));
        // The order of the points does not matter.
        const qint64 sorted = lengthOf(100, 8000, 10000, {{0.0, 0.5}, {0.3, 2.0}, {0.7, 1.0}, {1.0, 3.0}});
        QVERIFY(sorted > 0);
        QCOMPARE(lengthOf(100, 8000, 10000, {{0.7, 1.0}, {1.0, 3.0}, {0.0, 0.5}, {0.3, 2.0}}), sorted);
        QCOMPARE(lengthOf(0, 1000, 10000, {{0.5, 1.0}, {1.0, 2.0}}), 0); // a span outside every segment
    }

    void variableLengthMatchesNumericIntegration()
    {
        // Slow-downs weigh more: the crossing of normal speed leans towards the slow end.
        QVERIFY(JSBasicClip().calPrevToIntersectDesireLength(0.5f, 2.0f, 0.0f, 1000.0f) > 600.0f);
        QRandomGenerator random(99);
        for (int run = 0; run < 200; ++run) {
            const qint64 original = 10000 + random.bounded(90000);
            QList<Point> points;
            const int count = 2 + random.bounded(5);
            for (int i = 0; i < count; ++i)
                points << Point{i == 0 ? 0.0 : i == count - 1 ? 1.0 : random.generateDouble(), 0.2 + random.generateDouble() * 3.8};
            const qint64 begin = random.bounded(int(original / 2));
            const qint64 length = 1 + random.bounded(int(original - begin));

            QList<Point> ordered = points;
            std::sort(ordered.begin(), ordered.end(), [](const Point &l, const Point &r) { return l.pos < r.pos; });
            std::shuffle(points.begin(), points.end(), std::mt19937(run));
            double expected = 0.0;
            for (int i = 0; i + 1 < ordered.size(); ++i) {
                // Single precision, as the clip stores its curve.
                const double p = float(ordered[i].pos) * float(original), q = float(ordered[i + 1].pos) * float(original);
                const double vp = float(ordered[i].speed), vq = float(ordered[i + 1].speed);
                if ((vp < 1 && 1 < vq) || (vp > 1 && 1 > vq)) {
                    const double x = crossing(vp, vq, p, q);
                    expected += integratePiece(vp, 1.0, p, x, begin, begin + length) + integratePiece(1.0, vq, x, q, begin, begin + length);
                } else {
                    expected += integratePiece(vp, vq, p, q, begin, begin + length);
                }
            }
            const qint64 actual = lengthOf(begin, length, original, points);
            QVERIFY2(std::fabs(double(actual) - expected) <= 2.0 + 1e-4 * expected,
                     qPrintable(QStringLiteral("run %1: %2 vs %3").arg(run).arg(actual).arg(expected)));
        }
    }

    void cubicSolverFindsTheRootInTheUnitRange()
    {
        // The cases at the edges of the discriminant method's branches.
        JSBasicClip clip;
        LogCapture capture;
        QList<double> roots{42.0};
        // (t - 2)(t - 3)(t - 4): no root in [0, 1]; roots are appended to the list.
        QCOMPARE(clip.calculateEquation(1.0, -9.0, 26.0, -24.0, roots), 0.0f);
        QVERIFY(capture.hasMessage("error") && roots.size() == 4 && roots.first() == 42.0);
        capture.clear();
        QCOMPARE(clip.calculateEquation(1.0, -1.5, 0.75, -0.125, roots), 0.5f);   // (t - 0.5)³
        QCOMPARE(clip.calculateEquation(1.0, -2.5, 1.0625, -0.125, roots), 0.25f); // (t - 0.25)²(t - 2)
        QVERIFY(std::fabs(clip.calculateEquation(1.0, -1.5, -1.5, 1.0, roots) - 0.5f) < 1e-6f); // (t - 0.5)(t - 2)(t + 1)
        QVERIFY(!capture.hasMessage("error"));
        // (t - 3)((t - 0.5)² + 0.01²): a near-double complex pair stands in with its real part.
        QVERIFY(std::fabs(clip.calculateEquation(1.0, -4.0, 3.2501, -0.7503, roots) - 0.5f) < 1e-6f);
        // (t - 3)((t - 0.5)² + 0.5²): a wide pair is not reported.
        QCOMPARE(clip.calculateEquation(1.0, -4.0, 3.5, -1.5, roots), 0.0f);
        QVERIFY(capture.hasMessage("error"));
    }
};

QTEST_GUILESS_MAIN(TstModel)
#include "tst_model.moc"
