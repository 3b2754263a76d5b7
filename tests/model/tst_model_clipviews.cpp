#include "Model/JSAudioClip.h"
#include "Model/JSVideoClip.h"
#include "Model/NLListNode.h"
#include "Model/TimelineFiles.h"

#include <QtTest>

using namespace Veloran;

namespace {

const char *kFullClip = R"({"id": "c", "type": "clip", "kind": "video",
    "track_ref": "t", "timeline_pos": 5000000000, "range_begin": 0, "range_length": 1200,
    "speed": 0.5, "original_length": 9000, "dir_path": "mat/one", "rcc_prefix": "pfx",
    "source": "clip.mov", "file_path": "media/a.mp4", "disabled": true, "stream_index": 2,
    "alpha": 0.25, "z_order": 0, "background_style": "", "background_value": "#ff0000",
    "background_fill_mode": "blur", "file_audio_stream_index": 3,
    "transform": {"id": "tr", "zoom": 1.5, "pan_crop_begin": "0,0,1,1"},
    "variableSpeed": [{"id": "p0", "original_pos": 0, "value": 1}],
    "video_filters": [{"id": "f1", "name": "blur"}, {"id": "f2", "name": "sharpen"}],
    "audio_filters": [{"id": "af", "gain": 2}],
    "subtitles": [{"id": "s1", "text": "hi"}]})";

NLMapNodePtr node(const QString &json)
{
    return NLMapNodePtr(new NLMapNode(json));
}

NLMapNodePtr clipInTimeline(const QString &clipJson)
{
    const QString json = QStringLiteral("{\"id\": \"/\", \"preview_param\": {\"timeline_dir\": \"/tl\"},"
                                        " \"tracks\": [{\"id\": \"t\", \"clips\": [%1]}]}")
                             .arg(clipJson);
    const NLMapNodePtr root = node(json);
    return root->getListNodeByID("/#tracks")->getNode("t")->getListNodeByID("t#clips")->nodeList().value(0);
}

} // namespace

class TstModelClipViews : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void absentValuesGiveTheirDefaults()
    {
        const JSVideoClip video(node(R"({"id": "c"})"));
        QCOMPARE(video.trackID(), QString());
        QCOMPARE(video.timelinePos(), 0);
        QVERIFY(!video.rangeBegin().has_value());
        QCOMPARE(video.rangeLength(), 0);
        QCOMPARE(video.speed(), 1.0);
        QCOMPARE(video.originalLength(), 0);
        QCOMPARE(video.dirPath(), QString());
        QCOMPARE(video.rccPrefix(), QString());
        QCOMPARE(video.source(), QString());
        QCOMPARE(video.filePath(), QString());
        QCOMPARE(video.disabled(), false);
        QCOMPARE(video.streamIndex(), 0);
        QVERIFY(video.variableSpeed().isEmpty());
        QVERIFY(!video.transform().node());
        QVERIFY(video.transform().props().isEmpty());
        QCOMPARE(video.alpha(), 1.0f);
        QVERIFY(!video.zOrder().has_value());
        QVERIFY(video.filters().isEmpty());
        QCOMPARE(video.backgroundStyle(), QStringLiteral("color"));
        QCOMPARE(video.backgroundValue(), QStringLiteral("#000000"));
        QCOMPARE(video.backgroundFillMode(), QStringLiteral("aspect_fill"));
        QVERIFY(video.subTitle().isEmpty());

        const JSAudioClip audio(node(R"({"id": "a"})"));
        QVERIFY(audio.filters().isEmpty());
        QCOMPARE(audio.fileAudioStreamIndex(), 0);

        // A view over no node reads everything as absent.
        const JSVideoClip none;
        QVERIFY(!none.node());
        QCOMPARE(none.tagID(), QString());
        QCOMPARE(none.speed(), 1.0);
        QCOMPARE(none.alpha(), 1.0f);
        QVERIFY(none.filters().isEmpty());
        QVERIFY(!none.opIntValue("x").has_value());
        QCOMPARE(none.timelineLength(), 0);
        QVERIFY(none.props().isEmpty());
    }

    void presentValuesAreReadWithTheirTypes()
    {
        const NLMapNodePtr clipNode = clipInTimeline(QString::fromUtf8(kFullClip));
        const JSVideoClip video(clipNode);
        QCOMPARE(video.node(), clipNode);
        QCOMPARE(video.tagID(), QStringLiteral("c"));
        QCOMPARE(video.type(), QStringLiteral("clip"));
        QCOMPARE(video.kind(), QStringLiteral("video"));
        QCOMPARE(video.trackID(), QStringLiteral("t"));
        QCOMPARE(video.timelinePos(), Q_INT64_C(5000000000));
        QCOMPARE(video.rangeBegin(), std::optional<qint64>(0));
        QCOMPARE(video.rangeLength(), 1200);
        QCOMPARE(video.speed(), 0.5);
        QCOMPARE(video.originalLength(), 9000);
        QCOMPARE(video.dirPath(), QStringLiteral("/tl/mat/one"));
        QCOMPARE(video.rccPrefix(), QStringLiteral("pfx"));
        QCOMPARE(video.source(), QStringLiteral("clip.mov"));
        QCOMPARE(video.filePath(), QStringLiteral("/tl/media/a.mp4"));
        QCOMPARE(video.disabled(), true);
        QCOMPARE(video.streamIndex(), 2);
        QCOMPARE(video.alpha(), 0.25f);
        QCOMPARE(video.zOrder(), std::optional<int>(0)); // present zero is not absent
        QCOMPARE(video.backgroundStyle(), QString());    // present but empty stays empty
        QCOMPARE(video.backgroundValue(), QStringLiteral("#ff0000"));
        QCOMPARE(video.backgroundFillMode(), QStringLiteral("blur"));
        QCOMPARE(video.transform().props().value("pan_crop_begin").toString(), QStringLiteral("0,0,1,1"));
        QCOMPARE(video.transform().tagID(), QStringLiteral("tr"));
        QCOMPARE(video.variableSpeed().size(), 1);
        QCOMPARE(video.variableSpeed().at(0).value("id").toString(), QStringLiteral("p0"));
        QCOMPARE(video.filters().size(), 2);
        QCOMPARE(video.filters().at(1).value("name").toString(), QStringLiteral("sharpen"));
        QCOMPARE(video.subTitle().size(), 1);
        QCOMPARE(video.subTitle().at(0).value("text").toString(), QStringLiteral("hi"));

        const JSAudioClip audio(clipNode);
        QCOMPARE(audio.filters().size(), 1);
        QCOMPARE(audio.filters().at(0).value("gain").toInt(), 2);
        QCOMPARE(audio.fileAudioStreamIndex(), 3);

        // Views read the node's current values.
        clipNode->setValue("alpha", 0.75);
        QCOMPARE(video.alpha(), 0.75f);
        QCOMPARE(video.opFloatValue("alpha"), std::optional<float>(0.75f));
        QCOMPARE(video.opDoubleValue("speed"), std::optional<double>(0.5));
        QCOMPARE(video.opInt64Value("timeline_pos"), std::optional<qint64>(Q_INT64_C(5000000000)));
        QCOMPARE(video.opBoolValue("disabled"), std::optional<bool>(true));
        QCOMPARE(video.opStringValue("source"), std::optional<QString>(QStringLiteral("clip.mov")));
        QCOMPARE(video.getMapNodeByKey("transform"), clipNode->getMapNodeByKey("transform"));
        QCOMPARE(video.getListNodeByID("c#video_filters"), clipNode->getListNodeByID("c#video_filters"));

        JSNode view(clipNode);
        view.resetNode(clipNode->getMapNodeByKey("transform"));
        QCOMPARE(view.floatValue("zoom"), 1.5f);
    }

    void videoAndAudioByTypeAndKind()
    {
        struct Case { const char *type; const char *kind; bool video; bool audio; };
        const Case cases[] = {
            {"clip", "video", true, true},
            {"clip", "video_only", true, false},
            {"clip", "audio_with_cover", true, true},
            {"clip", "audio", false, true},
            {"clip", "other", false, false},
            {"clip", "", false, false},
            {"image", "audio", true, false},
            {"text", "", true, false},
            {"sticker", "video", true, false},
            {"Clip", "video", false, false},
            {"IMAGE", "", false, false},
            {"", "video", false, false},
        };
        for (const Case &c : cases) {
            QVariantMap map{{"type", c.type}, {"kind", c.kind}};
            const JSBasicClip clip(NLMapNodePtr(new NLMapNode(map)));
            QVERIFY2(clip.isVideo() == c.video, qPrintable(QStringLiteral("%1/%2").arg(c.type, c.kind)));
            QVERIFY2(clip.isAudio() == c.audio, qPrintable(QStringLiteral("%1/%2").arg(c.type, c.kind)));
        }
    }

    void zoomIsSetOnlyOnAnExistingTransform()
    {
        const NLMapNodePtr withTransform = node(R"({"id": "c", "transform": {"zoom": 1}})");
        const NLMapNodePtr transform = withTransform->getMapNodeByKey("transform");
        JSPicClip pic(withTransform);
        pic.setZoom(2.5);
        QCOMPARE(pic.transform().node(), transform);
        QCOMPARE(transform->opDoubleValue("zoom"), std::optional<double>(2.5));

        const NLMapNodePtr bare = node(R"({"id": "c"})");
        JSPicClip plain(bare);
        plain.setZoom(3.0);
        QVERIFY(!plain.transform().node());
        QVERIFY(bare->toMap().contains("transform")); // a null node is stored there
        QVERIFY(!bare->toJson().contains("zoom"));
        QVERIFY(jsonToVariantMap(bare->toJson()).contains("transform"));
        INode *parent = nullptr;
        QVERIFY(!bare->findNode("x", &parent));
        QVERIFY(bare->clone()->toMap().contains("transform"));
    }
};

QTEST_GUILESS_MAIN(TstModelClipViews)
#include "tst_model_clipviews.moc"
