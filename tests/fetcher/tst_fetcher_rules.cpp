#include "Projects/Fetcher/AudioPicker.h"
#include "Projects/Fetcher/SchedulingRules.h"

#include <QtTest>

using namespace Veloran;

Q_DECLARE_METATYPE(Veloran::NextStart)

// The scheduler's decisions, free of threads: what starts next, batches, the cache.
class TstFetcherRules : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void nextStartPutsVideoFirstAndKeepsASlotForIt_data()
    {
        QTest::addColumn<int>("running");
        QTest::addColumn<int>("slotCount");
        QTest::addColumn<bool>("video");
        QTest::addColumn<bool>("audio");
        QTest::addColumn<bool>("limited");
        QTest::addColumn<NextStart>("expected");
        QTest::newRow("video first") << 0 << 4 << true << true << false << NextStart::Video;
        QTest::newRow("video takes the last slot") << 3 << 4 << true << false << false << NextStart::Video;
        QTest::newRow("audio leaves the last slot") << 3 << 4 << false << true << false << NextStart::None;
        QTest::newRow("audio below it") << 2 << 4 << false << true << false << NextStart::Audio;
        QTest::newRow("audio may take the only slot") << 0 << 1 << false << true << false << NextStart::Audio;
        QTest::newRow("audio while limited") << 0 << 4 << false << true << true << NextStart::None;
        QTest::newRow("all slots busy") << 4 << 4 << true << true << false << NextStart::None;
        QTest::newRow("no slots (unknown processors)") << 0 << maxConcurrentFor(0) << true << true << false << NextStart::None;
        QTest::newRow("nothing waiting") << 0 << 4 << false << false << false << NextStart::None;
    }
    void nextStartPutsVideoFirstAndKeepsASlotForIt()
    {
        QFETCH(int, running);
        QFETCH(int, slotCount);
        QFETCH(bool, video);
        QFETCH(bool, audio);
        QFETCH(bool, limited);
        QFETCH(NextStart, expected);
        int asked = 0;
        QCOMPARE(nextStart(running, slotCount, video, audio, [&] { ++asked; return limited; }), expected);
        // The audio limit is only asked when audio would otherwise start.
        QVERIFY(asked <= (!video && audio && running < slotCount ? 1 : 0));
    }

    void batchesTakeOnlyConsecutiveRequestsForOneFile()
    {
        QList<VideoThumbRequest> queue;
        for (const auto &request : QList<QPair<qint64, QString>> {{1, "f1"}, {3, "f1"}, {2, "f2"}, {4, "F2"}, {5, "f1"}}) {
            queue.append(VideoThumbRequest());
            queue.last().id = request.first;
            queue.last().filePath = request.second;
        }
        QList<QList<qint64>> batches;
        while (!queue.isEmpty()) {
            batches.append(QList<qint64>());
            for (const VideoThumbRequest &request : takeVideoBatch(queue))
                batches.last().append(request.id);
        }
        // File names compare exactly, case included.
        QCOMPARE(batches, (QList<QList<qint64>> {{1, 3}, {2}, {4}, {5}}));
        QVERIFY(takeVideoBatch(queue).isEmpty());
    }

    void poolIsHalfTheProcessorsAndIdlePickersAreTrimmed()
    {
        QCOMPARE(maxConcurrentFor(1), 1);
        QCOMPARE(maxConcurrentFor(3), 2);
        QCOMPARE(maxConcurrentFor(8), 4);
        // Down to five while work goes on, all after ten seconds without any.
        QCOMPARE(pickersToEvict(7, 500), 2);
        QCOMPARE(pickersToEvict(6, 10000), 1);
        QCOMPARE(pickersToEvict(5, 0), 0);
        QCOMPARE(pickersToEvict(7, 10001), 7);
        QCOMPARE(pickersToEvict(4, -1), 4); // nothing ever finished
    }

    void peakBucketsAndPieces()
    {
        QCOMPARE(AudioPicker::samplesPerValue(1000, 100), 480);
        QCOMPARE(AudioPicker::samplesPerValue(10, 1000), 1); // fewer samples than values
        QCOMPARE(AudioPicker::samplesPerValue(1000, 0), 1);
        QList<int> pieces;
        for (int i = 0, done = 0; i < 3; done += pieces.last(), ++i)
            pieces.append(AudioPicker::pieceQuota(10, done, 3, i));
        QCOMPARE(pieces, (QList<int> {3, 3, 4}));
        QCOMPARE(AudioPicker::pieceQuota(-4, 0, 2, 0), 0);
    }
};

QTEST_GUILESS_MAIN(TstFetcherRules)
#include "tst_fetcher_rules.moc"
