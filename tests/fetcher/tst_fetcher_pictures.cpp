#include "ImageCompare.h"
#include "TestMedia.h"

#include "Projects/Fetcher/AVFetcher.h"

#include <QFile>
#include <QImageReader>
#include <QtTest>

using namespace Veloran;

namespace {
constexpr int kLongWaitMs = 60000;

bool allBlack(const QImage &image)
{
    const QImage rgb = image.convertToFormat(QImage::Format_RGB888);
    for (int row = 0; row < rgb.height(); ++row) {
        const uchar *p = rgb.constScanLine(row);
        for (int i = 0; i < rgb.width() * 3; ++i) {
            if (p[i] != 0)
                return false;
        }
    }
    return true;
}

// Copies an MP4 whose index comes first up to the start of its media data: the copy
// opens, but no frame can be read from it.
bool copyWithoutMediaData(const QString &from, const QString &to)
{
    QFile in(from);
    if (!in.open(QIODevice::ReadOnly))
        return false;
    const QByteArray bytes = in.readAll();
    qint64 offset = 0;
    while (offset + 8 <= bytes.size()) {
        const auto *p = reinterpret_cast<const uchar *>(bytes.constData() + offset);
        qint64 boxSize = (qint64(p[0]) << 24) | (p[1] << 16) | (p[2] << 8) | p[3];
        if (bytes.mid(offset + 4, 4) == "mdat") {
            QFile out(to);
            return out.open(QIODevice::WriteOnly) && out.write(bytes.left(offset + 8)) == offset + 8;
        }
        if (boxSize < 8)
            return false;
        offset += boxSize;
    }
    return false;
}
} // namespace

class TstFetcherPictures : public QObject
{
    Q_OBJECT
private:
    QSharedPointer<IAVFetcher> fetcher;
    QString scratch;

    // The thumbnails of one call, by time.
    QMap<qint64, QImage> thumbnails(const QString &file, const QVector<qint64> &times, int width)
    {
        QSignalSpy spy(fetcher.data(), &IAVFetcher::videoThumb);
        const qint64 id = fetcher->fetchVideo(file, times, width, true, false);
        QMap<qint64, QImage> result;
        QElapsedTimer waited;
        waited.start();
        while (result.size() < times.size() && waited.elapsed() < kLongWaitMs) {
            if (spy.isEmpty() && !spy.wait(1000))
                continue;
            const QList<QVariant> signal = spy.takeFirst();
            if (signal.at(0).toLongLong() == id)
                result.insert(signal.at(2).toLongLong(), signal.at(4).value<QImage>());
        }
        return result;
    }

    // The answer's success flag as "true"/"false", or what went wrong with the answer.
    QString freezeFrame(const QString &file, const QString &savePath, qint64 time)
    {
        QSignalSpy spy(fetcher.data(), &IAVFetcher::videoFreeze);
        const qint64 id = fetcher->fetchFreezeFrame(file, savePath, time, true, false);
        if (!spy.wait(kLongWaitMs))
            return QStringLiteral("no answer");
        const QList<QVariant> signal = spy.first();
        if (signal.at(0).toLongLong() != id || signal.at(1).toString() != file || signal.at(2).toString() != savePath
            || signal.at(3).toLongLong() != time || !signal.at(4).toBool())
            return QStringLiteral("wrong echo");
        return signal.at(5).toBool() ? QStringLiteral("true") : QStringLiteral("false");
    }

private Q_SLOTS:
    void initTestCase()
    {
        for (const char *name : {"sample.mp4", "fetch-ref-1520.png", "fetch-anamorphic.mp4", "fetch-rotated.mp4",
                                 "fetch-faststart.mp4"})
            QVERIFY2(QFile::exists(TestMedia::path(name)), name);
        fetcher = createAVFetcher();
        scratch = TestMedia::scratchDir(QStringLiteral("fetch-pictures"));
    }

    void thumbnailsShowTheFrameAtTheirTime()
    {
        const QMap<qint64, QImage> thumbs = thumbnails(TestMedia::path("sample.mp4"), {1480, 1520, 1560}, 320);
        QCOMPARE(thumbs.size(), 3);
        const QList<qint64> times = thumbs.keys();
        for (qint64 time : times) {
            const QImage &thumb = thumbs[time];
            QCOMPARE(thumb.size(), QSize(320, 240));
            for (qint64 other : times) {
                const QImage reference(TestMedia::path(QStringLiteral("fetch-ref-%1.png").arg(other)));
                QCOMPARE(reference.size(), QSize(320, 240));
                const ImageDistance distance = imageDistance(thumb, reference);
                if (other == time) {
                    QVERIFY2(distance.meanDifference < 4.0 && distance.outlierShare < 0.02,
                             qPrintable(QStringLiteral("%1 ms: mean %2, outliers %3")
                                            .arg(time).arg(distance.meanDifference).arg(distance.outlierShare)));
                } else {
                    // The neighbouring frames really are different pictures.
                    QVERIFY2(distance.outlierShare > 0.001,
                             qPrintable(QStringLiteral("%1 ms looks like %2 ms").arg(time).arg(other)));
                }
            }
        }
    }

    void thumbnailsAreScaledToTheRequestedWidth()
    {
        const QMap<qint64, QImage> thumbs = thumbnails(TestMedia::path("sample.mp4"), {0}, 100);
        QCOMPARE(thumbs.value(0).size(), QSize(100, 75));
        const QImage reference = QImage(TestMedia::path("fetch-ref-1520.png"));
        const QImage small = thumbnails(TestMedia::path("sample.mp4"), {1520}, 160).value(1520);
        const ImageDistance distance =
            imageDistance(small, reference.scaled(160, 120, Qt::IgnoreAspectRatio, Qt::SmoothTransformation), 60);
        QVERIFY2(distance.meanDifference < 12.0, qPrintable(QString::number(distance.meanDifference)));
    }

    void nonSquarePixelsAreWidened()
    {
        QCOMPARE(thumbnails(TestMedia::path("fetch-anamorphic.mp4"), {0}, 1440).value(0).size(), QSize(1920, 1080));
        QCOMPARE(thumbnails(TestMedia::path("fetch-anamorphic.mp4"), {40}, 360).value(40).size(), QSize(480, 270));
        // Within rounding of square: left as it is.
        QCOMPARE(thumbnails(TestMedia::path("fetch-almost-square.mp4"), {0}, 320).value(0).size(), QSize(320, 240));
    }

    void rotatedStreamsAreTurned()
    {
        const QImage thumb = thumbnails(TestMedia::path("fetch-rotated.mp4"), {0}, 240).value(0);
        QCOMPARE(thumb.size(), QSize(240, 320));
        QVERIFY(!allBlack(thumb));
    }

    void withoutAFrameTheThumbnailIsABlackFourByThree()
    {
        const QString empty = scratch + QStringLiteral("/no-frames.mp4");
        QVERIFY(copyWithoutMediaData(TestMedia::path("fetch-faststart.mp4"), empty));
        const QImage thumb = thumbnails(empty, {1000}, 201).value(1000);
        QCOMPARE(thumb.size(), QSize(201, 150));
        QVERIFY(allBlack(thumb));
        QCOMPARE(freezeFrame(empty, scratch + QStringLiteral("/no-frames.png"), 1000), QStringLiteral("false"));

        // Past the end of a good file the reader still has its last frame to show.
        const QImage late = thumbnails(TestMedia::path("sample.mp4"), {60000}, 201).value(60000);
        QCOMPARE(late.size(), QSize(201, 150));
    }

    void freezeFramesAreSavedByTheirSuffix()
    {
        const QString png = scratch + QStringLiteral("/freeze.png");
        QCOMPARE(freezeFrame(TestMedia::path("sample.mp4"), png, 1520), QStringLiteral("true"));
        QImageReader reader(png);
        QCOMPARE(reader.format(), QByteArray("png"));
        const QImage saved = reader.read();
        QCOMPARE(saved.size(), QSize(320, 240)); // the source size
        const ImageDistance distance = imageDistance(saved, QImage(TestMedia::path("fetch-ref-1520.png")));
        QVERIFY2(distance.meanDifference < 4.0, qPrintable(QString::number(distance.meanDifference)));

        const QString bmp = scratch + QStringLiteral("/freeze.bmp");
        QCOMPARE(freezeFrame(TestMedia::path("fetch-anamorphic.mp4"), bmp, 0), QStringLiteral("true"));
        QCOMPARE(QImageReader(bmp).format(), QByteArray("bmp"));
        QCOMPARE(QImage(bmp).size(), QSize(1920, 1080));

        const QString unknown = scratch + QStringLiteral("/freeze.unknownsuffix");
        QCOMPARE(freezeFrame(TestMedia::path("sample.mp4"), unknown, 1520), QStringLiteral("false"));
        QVERIFY(!QFile::exists(unknown));
    }
};

QTEST_GUILESS_MAIN(TstFetcherPictures)
#include "tst_fetcher_pictures.moc"
