#include "TestFrames.h"

#include "Model/NLMapNode.h"
#include "VeloranDec/VideoFrame.h"

#include <QtTest>

using namespace Veloran;

namespace {

// A clip on the timeline from 1000 ms, 2000 ms of source at the given speed.
NLMapNodePtr clipWithTransform(const QString &begin, const QString &end, double speed = 1.0)
{
    const QString json = QStringLiteral(R"({"id":"clip1","type":"clip","kind":"video","timeline_pos":1000,
        "range_length":2000,"speed":%1,
        "transform":{"id":"tr1","zoom":1.5,"crop":"kept","pan_crop_begin":"%2","pan_crop_end":"%3"}})")
                             .arg(speed)
                             .arg(begin, end);
    return NLMapNodePtr(new NLMapNode(json));
}

QVariantMap transformAt(const NLMapNodePtr &clip, long long timeMs)
{
    VideoFrame frame(TestFrames::solidYuv420(16, 16, 16, 128, 128), 0);
    frame.setClipNode(clip);
    frame.setPts(timeMs);
    return frame.transformMap();
}

QString cropAt(const NLMapNodePtr &clip, long long timeMs)
{
    return transformAt(clip, timeMs).value(QStringLiteral("crop")).toString();
}

} // namespace

class TstFrameTransform : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void withoutAnimatedCropTheTransformIsUntouched()
    {
        const QVariantMap threeNumbers = transformAt(clipWithTransform("0,0,100", "20,10,60,50"), 2000);
        QCOMPARE(threeNumbers.value("crop").toString(), QStringLiteral("kept"));
        QCOMPARE(threeNumbers.value("zoom").toDouble(), 1.5);
        QCOMPARE(threeNumbers.value("pan_crop_begin").toString(), QStringLiteral("0,0,100"));

        QCOMPARE(cropAt(clipWithTransform("0,0,100,100", "20,10,60,50,1"), 2000), QStringLiteral("kept"));
        QCOMPARE(cropAt(clipWithTransform("", "20,10,60,50"), 2000), QStringLiteral("kept"));
        QCOMPARE(cropAt(clipWithTransform("0,0,100,100", ""), 2000), QStringLiteral("kept"));

        // A clip without transform child has an empty transform.
        VideoFrame frame(TestFrames::solidYuv420(16, 16, 16, 128, 128), 0);
        frame.setClipNode(NLMapNodePtr(new NLMapNode(QStringLiteral(R"({"id":"c","type":"clip","kind":"video"})"))));
        QVERIFY(frame.transformMap().isEmpty());
    }

    void withoutClipThereIsNoTransform()
    {
        VideoFrame frame(TestFrames::solidYuv420(16, 16, 16, 128, 128), 0);
        QVERIFY(frame.transformMap().isEmpty());
        QVariantMap transform {{"pan_crop_begin", "0,0,100,100"}, {"pan_crop_end", "20,10,60,50"}};
        const QVariantMap before = transform;
        frame.updateTransform(transform);
        QCOMPARE(transform, before);

        // A view over no node is no clip either.
        frame.setClipNode(NLMapNodePtr());
        QVERIFY(frame.transformMap().isEmpty());
        frame.updateTransform(transform);
        QCOMPARE(transform, before);
    }

    void cropMovesFromBeginToEndOverTheClip()
    {
        const NLMapNodePtr clip = clipWithTransform("0,0,100,100", "20,10,60,50");
        QCOMPARE(cropAt(clip, 1000), QStringLiteral("0,0,100,100"));
        QCOMPARE(cropAt(clip, 1500), QStringLiteral("5,2.5,90,87.5"));
        QCOMPARE(cropAt(clip, 2000), QStringLiteral("10,5,80,75"));
        QCOMPARE(cropAt(clip, 3000), QStringLiteral("20,10,60,50"));
        // Outside the clip the motion goes on.
        QCOMPARE(cropAt(clip, 0), QStringLiteral("-10,-5,120,125"));
        QCOMPARE(cropAt(clip, 4000), QStringLiteral("30,15,40,25"));

        const QVariantMap transform = transformAt(clip, 2000);
        QCOMPARE(transform.value("zoom").toDouble(), 1.5);
        QCOMPARE(transform.value("pan_crop_end").toString(), QStringLiteral("20,10,60,50"));
    }

    void equalRectanglesStayPut()
    {
        const NLMapNodePtr clip = clipWithTransform("0.1,0.2,0.3,0.4", "0.1,0.2,0.3,0.4");
        for (long long time : {0LL, 1000LL, 1733LL, 3000LL, 9000LL})
            QCOMPARE(cropAt(clip, time), QStringLiteral("0.1,0.2,0.3,0.4"));
    }

    void clipLengthOnTheTimelineSetsThePace()
    {
        // At double speed the 2000 ms of source last 1000 ms on the timeline.
        const NLMapNodePtr clip = clipWithTransform("0,0,100,100", "20,10,60,50", 2.0);
        QCOMPARE(cropAt(clip, 1500), QStringLiteral("10,5,80,75"));
        QCOMPARE(cropAt(clip, 2000), QStringLiteral("20,10,60,50"));
    }

    void frameTimeIsTheWrappersTime()
    {
        const NLMapNodePtr clip = clipWithTransform("0,0,100,100", "20,10,60,50");
        const AVFramePtr picture = TestFrames::solidYuv420(16, 16, 16, 128, 128);
        picture->pts = 3000;
        VideoFrame frame(picture, 0);
        frame.setClipNode(clip);
        QCOMPARE(frame.transformMap().value("crop").toString(), QStringLiteral("20,10,60,50"));
        frame.setPts(1000);
        QCOMPARE(frame.transformMap().value("crop").toString(), QStringLiteral("0,0,100,100"));
    }

    void partsThatAreNoNumbersCountAsZero()
    {
        const NLMapNodePtr clip = clipWithTransform("x,0,100,100", "20,10,60,y");
        QCOMPARE(cropAt(clip, 2000), QStringLiteral("10,5,80,50"));
    }

    void zeroLengthClipGivesNonFiniteCrop()
    {
        const NLMapNodePtr clip(new NLMapNode(QStringLiteral(R"({"id":"c","type":"clip","kind":"video",
            "timeline_pos":1000,"range_length":0,
            "transform":{"pan_crop_begin":"0,0,100,100","pan_crop_end":"20,10,60,50"}})")));
        const QStringList parts = cropAt(clip, 1500).split(',');
        QCOMPARE(parts.size(), 4);
        for (const QString &part : parts)
            QVERIFY2(part.contains(QLatin1String("inf")) || part.contains(QLatin1String("nan")), qPrintable(part));
    }
};

QTEST_GUILESS_MAIN(TstFrameTransform)
#include "tst_frametransform.moc"
