#include "PickerLog.h"
#include "TestMedia.h"

#include "Projects/Fetcher/AVFetcher.h"

#include <QFile>
#include <QtTest>

using namespace Veloran;

// Runs in a process of its own: what matters here is that no thumbnail was ever
// asked for before.
class TstFetcherAudioFirst : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void oneAudioScanAtATimeBeforeTheFirstThumbnails()
    {
        QVERIFY(QFile::exists(TestMedia::path("sine.wav")));
        QSharedPointer<IAVFetcher> fetcher = createAVFetcher();
        QSignalSpy samples(fetcher.data(), &IAVFetcher::audioSample);
        PickerLog log(AVPickerManager::sharedInstance());
        QList<qint64> ids;
        for (int i = 0; i < 3; ++i)
            ids << fetcher->fetchAudio(TestMedia::path("sine.wav"), 0, 2000, 50, 1, false);
        QTRY_COMPARE_WITH_TIMEOUT(samples.size(), 3, 60000);
        QCOMPARE(log.maxAudioRunning(), 1);
        QCOMPARE(log.startCount(), 3);
        QList<qint64> answered;
        for (const QList<QVariant> &signal : qAsConst(samples)) {
            answered << signal.at(0).toLongLong();
            QCOMPARE(signal.at(7).value<QList<uint8_t>>().size(), 50);
        }
        QCOMPARE(answered, ids); // one slot at a time: in queue order
    }
};

QTEST_GUILESS_MAIN(TstFetcherAudioFirst)
#include "tst_fetcher_audiofirst.moc"
