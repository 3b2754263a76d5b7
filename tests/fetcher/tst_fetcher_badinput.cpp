#include "PeakAnswers.h"
#include "TestMedia.h"

#include "Projects/Fetcher/AVFetcher.h"

#include <QDir>
#include <QFile>
#include <QtTest>

using namespace Veloran;

namespace {
constexpr int kLongWaitMs = 60000;
}

// Files that cannot be read are answered, never crash or hang the service. A file
// that cannot be opened gets null thumbnails, unsuccessful freeze frames and one
// empty piece of peaks (index 0), so that every request is answered.
class TstFetcherBadInput : public QObject
{
    Q_OBJECT
private:
    QSharedPointer<IAVFetcher> fetcher;
    QString scratch;

    QList<QImage> thumbnails(const QString &file, const QVector<qint64> &times)
    {
        QSignalSpy spy(fetcher.data(), &IAVFetcher::videoThumb);
        const qint64 id = fetcher->fetchVideo(file, times, 64, true, false);
        QList<QImage> images;
        QElapsedTimer waited;
        waited.start();
        while (images.size() < times.size() && waited.elapsed() < kLongWaitMs) {
            if (spy.isEmpty() && !spy.wait(1000))
                continue;
            const QList<QVariant> signal = spy.takeFirst();
            if (signal.at(0).toLongLong() == id)
                images << signal.at(4).value<QImage>();
        }
        return images;
    }

    QString freezeFrame(const QString &file)
    {
        QSignalSpy spy(fetcher.data(), &IAVFetcher::videoFreeze);
        const QString target = scratch + QStringLiteral("/") + QFileInfo(file).fileName() + QStringLiteral(".png");
        fetcher->fetchFreezeFrame(file, target, 0, true, false);
        if (!spy.wait(kLongWaitMs))
            return QStringLiteral("no answer");
        return spy.first().at(5).toBool() ? QStringLiteral("true") : QStringLiteral("false");
    }

    QList<QList<uint8_t>> peaks(const QString &file, int count)
    {
        const PeakAnswers answers = collectPeaks(fetcher.data(), count, [&] {
            return fetcher->fetchAudio(file, 0, 1000, 20, count, false);
        });
        QList<QList<uint8_t>> pieces;
        for (const QList<QVariant> &signal : answers.signals_)
            pieces << signal.at(7).value<QList<uint8_t>>();
        return pieces;
    }

private Q_SLOTS:
    void initTestCase()
    {
        fetcher = createAVFetcher();
        scratch = TestMedia::scratchDir(QStringLiteral("fetch-badinput"));
        QVERIFY(QFile::exists(TestMedia::path("fetch-garbage.mp4")));
        QVERIFY(QFile::exists(TestMedia::path("fetch-truncated.mp4")));
    }

    void filesThatCannotBeOpenedAreAnsweredWithFailures()
    {
        const QStringList unopenable{scratch + QStringLiteral("/does-not-exist.mp4"),
                                     TestMedia::path("fetch-garbage.mp4"),
                                     scratch, // a folder, and no material folder either
                                     QString()};
        for (const QString &file : unopenable) {
            const QList<QImage> images = thumbnails(file, {0, 500});
            QCOMPARE(images.size(), 2);
            QVERIFY2(images[0].isNull() && images[1].isNull(), qPrintable(file));
            QCOMPARE(freezeFrame(file), QStringLiteral("false"));
            QCOMPARE(peaks(file, 3), QList<QList<uint8_t>>{QList<uint8_t>()});
        }
    }

    void aFileWithoutTheWantedStreamGetsEmptyPeaks()
    {
        // A video without audio.
        QCOMPARE(peaks(TestMedia::path("fetch-rotated.mp4"), 2), QList<QList<uint8_t>>{QList<uint8_t>()});
        // A sound without pictures.
        const QList<QImage> images = thumbnails(TestMedia::path("sine.wav"), {0});
        QCOMPARE(images.size(), 1);
        QVERIFY(images[0].isNull());
    }

    void aTruncatedFileIsAnsweredWithoutPictures()
    {
        const QList<QImage> images = thumbnails(TestMedia::path("fetch-truncated.mp4"), {0, 1000, 3000});
        QCOMPARE(images.size(), 3);
        for (const QImage &image : images) {
            // Either it does not open (null) or it has no frames (black placeholder).
            if (!image.isNull()) {
                QCOMPARE(image.size(), QSize(64, 48));
                QCOMPARE(image.pixelColor(32, 24), QColor(Qt::black));
            }
        }
        QCOMPARE(freezeFrame(TestMedia::path("fetch-truncated.mp4")), QStringLiteral("false"));
        const QList<QList<uint8_t>> pieces = peaks(TestMedia::path("fetch-truncated.mp4"), 1);
        QCOMPARE(pieces.size(), 1);
        QVERIFY(pieces[0].isEmpty() || pieces[0].count(0) == 20);
    }

    void oddRequestsOnAGoodFile()
    {
        // No values wanted: each piece is empty.
        QCOMPARE(peaks(TestMedia::path("sine.wav"), 2).size(), 2);
        const PeakAnswers none = collectPeaks(fetcher.data(), 2, [&] {
            return fetcher->fetchAudio(TestMedia::path("sine.wav"), 0, 1000, 0, 2, false);
        });
        QCOMPARE(none.signals_.size(), 2);
        QVERIFY(none.allValues().isEmpty());
        // A range that starts past the end gives padding only.
        const PeakAnswers late = collectPeaks(fetcher.data(), 1, [&] {
            return fetcher->fetchAudio(TestMedia::path("sine.wav"), 5000, 1000, 10, 1, false);
        });
        QCOMPARE(late.allValues(), QVector<uint8_t>(10, 0).toList());
        // A negative time is read from the start.
        const QList<QImage> images = thumbnails(TestMedia::path("sample.mp4"), {-500});
        QCOMPARE(images.size(), 1);
        QCOMPARE(images[0].size(), QSize(64, 48));
    }
};

QTEST_GUILESS_MAIN(TstFetcherBadInput)
#include "tst_fetcher_badinput.moc"
