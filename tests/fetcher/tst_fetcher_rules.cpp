#include "Projects/Fetcher/AudioPicker.h"
#include "Projects/Fetcher/SchedulingRules.h"

#include <QtTest>

using namespace Veloran;

namespace {

VideoThumbRequest video(qint64 id, const QString &file)
{
    VideoThumbRequest request;
    request.id = id;
    request.filePath = file;
    return request;
}

QList<qint64> ids(const QList<VideoThumbRequest> &batch)
{
    QList<qint64> result;
    for (const VideoThumbRequest &request : batch)
        result.append(request.id);
    return result;
}

// The scheduler's fill loop over counters instead of pickers: what one round starts.
struct Round
{
    int maxConcurrent = 1;
    int runningVideo = 0;
    int runningAudio = 0;
    int videoWaiting = 0; // batches
    int audioWaiting = 0;
    bool noVideoStarted = true;
    int limitQueries = 0;

    QString run()
    {
        QString started;
        for (;;) {
            const NextStart next = nextStart(runningVideo + runningAudio, maxConcurrent, videoWaiting > 0,
                                             audioWaiting > 0, [this] {
                                                 ++limitQueries;
                                                 return noVideoStarted && runningAudio > 0;
                                             });
            if (next == NextStart::None)
                return started;
            if (next == NextStart::Video) {
                --videoWaiting;
                ++runningVideo;
                noVideoStarted = false;
                started += 'V';
            } else {
                --audioWaiting;
                ++runningAudio;
                started += 'A';
            }
        }
    }
};

} // namespace

class TstFetcherRules : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void poolWidthIsAboutHalfTheProcessors()
    {
        QCOMPARE(maxConcurrentFor(0), 0);
        QCOMPARE(maxConcurrentFor(1), 1);
        QCOMPARE(maxConcurrentFor(2), 1);
        QCOMPARE(maxConcurrentFor(3), 2);
        QCOMPARE(maxConcurrentFor(8), 4);
        QCOMPARE(maxConcurrentFor(12), 6);
    }

    void videoGoesFirstAndAudioMayUseTheOnlySlot()
    {
        Round round;
        round.maxConcurrent = maxConcurrentFor(1);
        round.videoWaiting = 2;
        round.audioWaiting = 2;
        QCOMPARE(round.run(), QStringLiteral("V"));
        round.runningVideo = 0; // that batch finished
        QCOMPARE(round.run(), QStringLiteral("V"));
        round.runningVideo = 0;
        QCOMPARE(round.run(), QStringLiteral("A"));
        round.runningAudio = 0;
        QCOMPARE(round.run(), QStringLiteral("A"));
    }

    void unknownProcessorCountStartsNothing()
    {
        Round round;
        round.maxConcurrent = maxConcurrentFor(0);
        round.videoWaiting = 3;
        round.audioWaiting = 3;
        QCOMPARE(round.run(), QString());
        QCOMPARE(round.videoWaiting, 3);
    }

    void oneAudioScanAtATimeUntilTheFirstThumbnails()
    {
        Round round;
        round.maxConcurrent = 4;
        round.audioWaiting = 3;
        QCOMPARE(round.run(), QStringLiteral("A"));
        QCOMPARE(round.run(), QString()); // slots are free, still waiting
        round.runningAudio = 0;
        QCOMPARE(round.run(), QStringLiteral("A"));

        // Once a video batch started, audio is bounded by the free-slot rule only.
        round.videoWaiting = 1;
        round.audioWaiting = 5;
        QCOMPARE(round.run(), QStringLiteral("VA"));
        QCOMPARE(round.runningAudio + round.runningVideo, 3); // one slot left free
    }

    void audioNeverTakesTheLastSlot()
    {
        for (int slotCount : {2, 3, 6}) {
            Round round;
            round.maxConcurrent = slotCount;
            round.noVideoStarted = false;
            round.audioWaiting = 10;
            QCOMPARE(round.run(), QString(slotCount - 1, QLatin1Char('A')));
            // ...but video does.
            round.videoWaiting = 1;
            QCOMPARE(round.run(), QStringLiteral("V"));
            QCOMPARE(round.runningAudio + round.runningVideo, slotCount);
        }
    }

    void audioLimitIsOnlyAskedWhenAudioWouldStart()
    {
        Round round;
        round.maxConcurrent = 2;
        round.videoWaiting = 1;
        round.audioWaiting = 1;
        round.runningAudio = 1;
        QCOMPARE(round.run(), QStringLiteral("V"));
        QCOMPARE(round.limitQueries, 0);
    }

    void batchesTakeOnlyConsecutiveRequestsForOneFile()
    {
        QList<VideoThumbRequest> queue{video(1, "f1"), video(2, "f2"), video(3, "f1")};
        QCOMPARE(ids(takeVideoBatch(queue)), QList<qint64>{1});
        QCOMPARE(ids(takeVideoBatch(queue)), QList<qint64>{2});
        QCOMPARE(ids(takeVideoBatch(queue)), QList<qint64>{3});
        QVERIFY(takeVideoBatch(queue).isEmpty());

        queue = {video(1, "f1"), video(3, "f1"), video(2, "f2"), video(4, "F2")};
        QCOMPARE(ids(takeVideoBatch(queue)), (QList<qint64>{1, 3}));
        // File names compare exactly, case included.
        QCOMPARE(ids(takeVideoBatch(queue)), QList<qint64>{2});
        QCOMPARE(ids(takeVideoBatch(queue)), QList<qint64>{4});
        QVERIFY(queue.isEmpty());
    }

    void idlePickersAreTrimmedWhileWorkGoesOnAndDroppedAfterTenSeconds()
    {
        QCOMPARE(pickersToEvict(7, 500), 2);
        QCOMPARE(pickersToEvict(6, 10000), 1);
        QCOMPARE(pickersToEvict(5, 0), 0);
        QCOMPARE(pickersToEvict(0, 0), 0);
        QCOMPARE(pickersToEvict(7, 10001), 7);
        QCOMPARE(pickersToEvict(3, 60000), 3);
        QCOMPARE(pickersToEvict(4, -1), 4); // nothing ever finished
    }

    void peakBucketsAndPieces()
    {
        QCOMPARE(AudioPicker::samplesPerValue(1000, 100), 480);
        QCOMPARE(AudioPicker::samplesPerValue(10, 1000), 1); // fewer samples than values
        QCOMPARE(AudioPicker::samplesPerValue(1000, 0), 1);
        QCOMPARE(AudioPicker::samplesPerValue(-5, 10), 1);

        QList<int> pieces;
        int done = 0;
        for (int i = 0; i < 3; ++i) {
            pieces.append(AudioPicker::pieceQuota(10, done, 3, i));
            done += pieces.last();
        }
        QCOMPARE(pieces, (QList<int>{3, 3, 4}));
        QCOMPARE(AudioPicker::pieceQuota(-4, 0, 2, 0), 0);
    }
};

QTEST_GUILESS_MAIN(TstFetcherRules)
#include "tst_fetcher_rules.moc"
