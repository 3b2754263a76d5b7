#include "FetchAnswers.h"
#include "ImageDifference.h"
#include "LogCapture.h"
#include "PickerLog.h"
#include "TestMedia.h"

#include "Projects/Fetcher/AVFetcher.h"
#include "Projects/Fetcher/AVPickerManager.h"

#include <QFile>
#include <QImageReader>
#include <QResource>
#include <QThread>
#include <QtTest>

#include <algorithm>
#include <mutex>

using namespace Veloran;
using namespace FetchAnswers;

namespace {

bool allBlack(const QImage &image)
{
    QImage black(image.size(), QImage::Format_RGB888);
    black.fill(Qt::black);
    return !image.isNull() && image.convertToFormat(QImage::Format_RGB888) == black;
}

} // namespace

// The fetch service: its scheduling, and what a host gets (ids, signals, pictures,
// peaks, answers to bad input).
class TstFetcher : public QObject
{
    Q_OBJECT
private:
    QSharedPointer<IAVFetcher> fetcher = createAVFetcher();
    QString scratch = TestMedia::scratchDir(QStringLiteral("fetch"));

private Q_SLOTS:
    void init()
    {
        stopService(); // every test starts from an idle service
    }

    void everyAnswerCarriesItsCallsId()
    {
        QSignalSpy thumbs(fetcher.data(), &IAVFetcher::videoThumb);
        const QString file = TestMedia::path("sample.mp4");
        const qint64 first = fetcher->fetchVideo(file, {0, 1000, 2000}, 80, true, false);
        const qint64 second = fetcher->fetchVideo(file, {500, 1500, 2500}, 80, false, false);
        QCOMPARE(second, first + 1);
        QTRY_COMPARE_WITH_TIMEOUT(thumbs.size(), 6, kWaitMs);
        QMap<qint64, QList<qint64>> timesById;
        for (const QList<QVariant> &signal : qAsConst(thumbs)) {
            const qint64 id = signal.at(0).toLongLong();
            QCOMPARE(signal.at(1).toString(), file);
            QCOMPARE(signal.at(3).toBool(), id == first); // the seek flag echoed
            QCOMPARE(signal.at(4).value<QImage>().size(), QSize(80, 60));
            timesById[id] << signal.at(2).toLongLong();
        }
        QCOMPARE(timesById, (QMap<qint64, QList<qint64>> {{first, {0, 1000, 2000}}, {second, {500, 1500, 2500}}}));

        // A call without times takes an id and answers nothing.
        const qint64 empty = fetcher->fetchVideo(file, {}, 80, true, false);
        QSignalSpy freezes(fetcher.data(), &IAVFetcher::videoFreeze);
        QCOMPARE(fetcher->fetchFreezeFrame(file, QString(), 0, true, false), empty + 1);
        QVERIFY(freezes.wait(kWaitMs));
        QCOMPARE(freezes.first().at(0).toLongLong(), empty + 1);
        QCOMPARE(thumbs.size(), 6);
    }

    void answersArriveOnTheHostsOwnThreadAndReachLaterFetchers()
    {
        // A host on a thread of its own, with its own event loop.
        QThread thread;
        QObject host;
        host.moveToThread(&thread);
        thread.start();
        std::mutex mutex;
        QList<QThread *> answeredOn;
        auto answered = [&] { std::lock_guard<std::mutex> locker(mutex); return answeredOn; };
        QSharedPointer<IAVFetcher> hosted;
        qint64 id = 0;
        QMetaObject::invokeMethod(&host, [&] {
            hosted = createAVFetcher();
            connect(hosted.data(), &IAVFetcher::videoThumb, hosted.data(), [&](qint64 answer, QString, qint64, bool, QImage) {
                std::lock_guard<std::mutex> locker(mutex);
                answeredOn << (answer == id ? QThread::currentThread() : nullptr);
            });
            id = hosted->fetchVideo(TestMedia::path("sample.mp4"), {0, 800}, 40, true, false);
        }, Qt::BlockingQueuedConnection);
        QTRY_COMPARE_WITH_TIMEOUT(answered().size(), 2, kWaitMs);
        QCOMPARE(answered(), (QList<QThread *> {&thread, &thread}));
        QMetaObject::invokeMethod(&host, [&] { hosted.reset(); }, Qt::BlockingQueuedConnection);
        thread.quit();
        thread.wait();

        // Answers go to every fetcher, also to one made after the request.
        QSharedPointer<IAVFetcher> later;
        {
            GateHold gate; // holds the picker before its first frame
            QSharedPointer<IAVFetcher> early = createAVFetcher();
            id = early->fetchVideo(TestMedia::path("sample.mp4"), {1200}, 48, true, false);
            later = createAVFetcher();
        } // the early fetcher is gone, then the gate opens
        QSignalSpy thumbs(later.data(), &IAVFetcher::videoThumb);
        QVERIFY(thumbs.wait(kWaitMs));
        QCOMPARE(thumbs.first().at(0).toLongLong(), id);
        QCOMPARE(thumbs.first().at(2).toLongLong(), 1200);
    }

    void thumbnailsShowTheFrameAtTheirTime()
    {
        // References decoded by the ffmpeg tool itself, 40 ms apart.
        const QMap<qint64, QImage> thumbs = thumbnails(fetcher.data(), TestMedia::path("sample.mp4"), {1480, 1520, 1560}, 320);
        QCOMPARE(thumbs.size(), 3);
        for (qint64 time : thumbs.keys()) {
            for (qint64 other : thumbs.keys()) {
                // Conversions differ a little at sharp colour edges.
                const double share = ImageDifference::of(thumbs[time], QImage(TestMedia::path(QStringLiteral("fetch-ref-%1.png").arg(other))), 40).share;
                // The same picture, and the neighbouring frames really are different ones.
                QVERIFY2(other == time ? share < 0.02 : share > 0.001,
                         qPrintable(QStringLiteral("%1 ms against %2 ms: %3").arg(time).arg(other).arg(share)));
            }
        }
        // Scaled to the requested width; non-square pixels widened; turned by the display matrix.
        QCOMPARE(thumbnails(fetcher.data(), TestMedia::path("sample.mp4"), {0}, 100).value(0).size(), QSize(100, 75));
        QCOMPARE(thumbnails(fetcher.data(), TestMedia::path("fetch-anamorphic.mp4"), {40}, 360).value(40).size(), QSize(480, 270));
        QCOMPARE(thumbnails(fetcher.data(), TestMedia::path("fetch-almost-square.mp4"), {0}, 320).value(0).size(), QSize(320, 240));
        const QImage turned = thumbnails(fetcher.data(), TestMedia::path("fetch-rotated.mp4"), {0}, 240).value(0);
        QCOMPARE(turned.size(), QSize(240, 320));
        QVERIFY(!allBlack(turned));
    }

    void freezeFramesAreSavedByTheirSuffix()
    {
        const QString png = scratch + QStringLiteral("/freeze.png");
        QCOMPARE(freezeFrame(fetcher.data(), TestMedia::path("sample.mp4"), png, 1520), QStringLiteral("true"));
        QCOMPARE(QImageReader(png).format(), QByteArray("png"));
        QVERIFY(ImageDifference::of(QImage(png), QImage(TestMedia::path("fetch-ref-1520.png")), 40).share < 0.02); // at the source size
        const QString bmp = scratch + QStringLiteral("/freeze.bmp");
        QCOMPARE(freezeFrame(fetcher.data(), TestMedia::path("fetch-anamorphic.mp4"), bmp, 0), QStringLiteral("true"));
        QCOMPARE(QImageReader(bmp).format(), QByteArray("bmp"));
        QCOMPARE(QImage(bmp).size(), QSize(1920, 1080));
        const QString unknown = scratch + QStringLiteral("/freeze.unknownsuffix");
        QCOMPARE(freezeFrame(fetcher.data(), TestMedia::path("sample.mp4"), unknown, 1520), QStringLiteral("false"));
        QVERIFY(!QFile::exists(unknown));
    }

    void peaksMatchTheToolsOwnDecode()
    {
        QCOMPARE(values(peaks(fetcher.data(), TestMedia::path("fetch-silence.wav"), 0, 2000, 100, 4)), QVector<uint8_t>(100, 0).toList());
        QCOMPARE(values(peaks(fetcher.data(), TestMedia::path("fetch-square.wav"), 500, 1000, 100, 1)), QVector<uint8_t>(100, 255).toList());

        // A 44.1 kHz stereo swell, against the ffmpeg tool's 48 kHz u8 mono decode.
        QFile raw(TestMedia::path("fetch-tone.u8"));
        QVERIFY(raw.open(QIODevice::ReadOnly));
        const QByteArray samples = raw.readAll();
        const QString tone = TestMedia::path("fetch-tone.wav");
        fetcher->stop(); // a fresh picker
        const QList<uint8_t> fresh = values(peaks(fetcher.data(), tone, 0, 1900, 190, 3));
        QCOMPARE(fresh.size(), 190);
        for (int i = 0; i < fresh.size(); ++i) {
            const auto [lo, hi] = std::minmax_element(samples.constBegin() + i * 480, samples.constBegin() + (i + 1) * 480,
                                                      [](char a, char b) { return uchar(a) < uchar(b); });
            QVERIFY2(std::abs(uchar(*hi) - uchar(*lo) - int(fresh[i])) <= 4,
                     qPrintable(QStringLiteral("value %1: %2, expected %3").arg(i).arg(fresh[i]).arg(uchar(*hi) - uchar(*lo))));
        }
        // The cached picker keeps its opened source: a later range must not carry
        // samples from where the previous scan ended.
        peaks(fetcher.data(), tone, 1000, 900, 10, 1);
        QCOMPARE(values(peaks(fetcher.data(), tone, 0, 1900, 190, 3)), fresh);

        // Values arrive in even pieces, each echoing the request.
        const QList<QList<QVariant>> pieces = peaks(fetcher.data(), tone, 0, 1000, 10, 3);
        QCOMPARE(pieces.size(), 3);
        for (int i = 0; i < 3; ++i) {
            QCOMPARE(pieces[i].mid(1, 6), (QList<QVariant> {tone, qint64(0), qint64(1000), 10, 3, i}));
            QCOMPARE(pieces[i].at(7).value<QList<uint8_t>>().size(), i < 2 ? 3 : 4);
        }
    }

    void aRangePastTheEndIsCutAndLogged()
    {
        LogCapture capture;
        const QList<QList<QVariant>> pieces = peaks(fetcher.data(), TestMedia::path("fetch-tone.wav"), 1000, 5000, 50, 2);
        QCOMPARE(pieces.size(), 2);
        QVERIFY(capture.hasRecord("---fetch--- begin = 1000,length = 5000,sampleCount = 50,count = 2"));
        QVERIFY(capture.hasRecord("[fetch samples_v2] src.durationMs() < mBegin + mLength: 2000, 6000"));
        QTRY_VERIFY_WITH_TIMEOUT(capture.hasRecordStartingWith("[fetch samples_v2] finished total cost: "), kWaitMs);
        const QList<uint8_t> cut = values(pieces);
        QCOMPARE(cut.size(), 50);
        QVERIFY(cut[40] > 100); // the cut range is covered by real values, not by padding
        // A range that starts past the end gives padding only; no values wanted, empty pieces.
        QCOMPARE(values(peaks(fetcher.data(), TestMedia::path("sine.wav"), 5000, 1000, 10, 1)), QVector<uint8_t>(10, 0).toList());
        const QList<QList<QVariant>> none = peaks(fetcher.data(), TestMedia::path("sine.wav"), 0, 1000, 0, 2);
        QVERIFY(none.size() == 2 && values(none).isEmpty());
    }

    void materialFolderIsReadFromItsResourceFile()
    {
        const QString folder = TestMedia::path("fetch-material");
        const QList<QList<QVariant>> fromFolder = peaks(fetcher.data(), folder, 200, 1000, 40, 1);
        QCOMPARE(fromFolder.size(), 1);
        QCOMPARE(fromFolder.first().at(1).toString(), folder); // echoed as given
        const QList<uint8_t> folderPeaks = values(fromFolder);
        QCOMPARE(folderPeaks.size(), 40);
        QVERIFY(*std::max_element(folderPeaks.begin(), folderPeaks.end()) > 20); // not silence
        QCOMPARE(folderPeaks, values(peaks(fetcher.data(), TestMedia::path("fetch-tone.wav"), 200, 1000, 40, 1)));

        // Asked again, the resource file is not registered again: one unregistration
        // takes its media away.
        QCOMPARE(values(peaks(fetcher.data(), folder, 200, 1000, 40, 1)), folderPeaks);
        const QString rcc = folder + QStringLiteral("/resource.rcc");
        QVERIFY(QFile::exists(QStringLiteral(":/fetchmat/tone.wav")));
        fetcher->stop(); // closes the idle picker's file inside the resource
        QVERIFY(QResource::unregisterResource(rcc));
        QVERIFY(!QFile::exists(QStringLiteral(":/fetchmat/tone.wav")));
        QVERIFY(QResource::registerResource(rcc));
    }

    // Files that cannot be read are answered: null thumbnails, unsuccessful freeze
    // frames and one empty piece of peaks (index 0), so every request is answered.
    void badInputIsAnswered_data()
    {
        QTest::addColumn<QString>("file");
        QTest::newRow("missing") << TestMedia::scratchDir("fetch-bad") + QStringLiteral("/does-not-exist.mp4");
        QTest::newRow("garbage") << TestMedia::path("fetch-garbage.mp4");
        QTest::newRow("a folder") << TestMedia::scratchDir("fetch-bad");
        QTest::newRow("empty path") << QString();
    }
    void badInputIsAnswered()
    {
        QFETCH(QString, file);
        const QMap<qint64, QImage> images = thumbnails(fetcher.data(), file, {0, 500}, 64);
        QCOMPARE(images.size(), 2);
        QVERIFY(images[0].isNull() && images[500].isNull());
        QCOMPARE(freezeFrame(fetcher.data(), file, scratch + QStringLiteral("/bad.png"), 0), QStringLiteral("false"));
        const QList<QList<QVariant>> pieces = peaks(fetcher.data(), file, 0, 1000, 20, 3);
        QCOMPARE(pieces.size(), 1);
        QCOMPARE(pieces.first().at(6).toInt(), 0);
        QVERIFY(values(pieces).isEmpty());
    }

    void missingStreamsAndFramesAreAnswered()
    {
        // No audio: one empty piece; no video: a null thumbnail.
        const QList<QList<QVariant>> pieces = peaks(fetcher.data(), TestMedia::path("fetch-rotated.mp4"), 0, 1000, 20, 2);
        QVERIFY(pieces.size() == 1 && values(pieces).isEmpty());
        const QMap<qint64, QImage> noVideo = thumbnails(fetcher.data(), TestMedia::path("sine.wav"), {0}, 64);
        QVERIFY(noVideo.size() == 1 && noVideo.first().isNull());
        // Opens, but is cut before its first frame: a black 4:3 placeholder, no freeze frame, no peaks.
        const QString cut = TestMedia::path("fetch-noframes.mp4");
        const QMap<qint64, QImage> black = thumbnails(fetcher.data(), cut, {0, 1000}, 201);
        QCOMPARE(black.size(), 2);
        QVERIFY(black[1000].size() == QSize(201, 150) && allBlack(black[1000]));
        QCOMPARE(freezeFrame(fetcher.data(), cut, scratch + "/cut.png", 1000), QStringLiteral("false"));
        const QList<uint8_t> cutPeaks = values(peaks(fetcher.data(), cut, 0, 1000, 20, 1));
        QVERIFY(cutPeaks.isEmpty() || cutPeaks.count(0) == 20);
        // A negative time reads from the start; past the end the last frame stays.
        QCOMPARE(thumbnails(fetcher.data(), TestMedia::path("sample.mp4"), {-500}, 64).value(-500).size(), QSize(64, 48));
        QVERIFY(!allBlack(thumbnails(fetcher.data(), TestMedia::path("sample.mp4"), {60000}, 64).value(60000)));
    }
};

QTEST_GUILESS_MAIN(TstFetcher)
#include "tst_fetcher.moc"
