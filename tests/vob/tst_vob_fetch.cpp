#include "TestMedia.h"
#include "VobTestKit.h"

#include "Projects/Fetcher/IAVFetcher.h"
#include "VeloranBaseEntry.h"
#include "VeloranDec/FFVideoStreamReader.h"

#include <QtTest>

using namespace Veloran;
using namespace VobTestKit;

// Thumbnails of a joined VOB through the fetch service, read by the
// chapter-aware demuxer while the base library's setting asks for it.
class TstVobFetch : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void thumbnailsShowTheFrameAtTheirTime()
    {
        VeloranBaseEntry()->properties()->setValue(QStringLiteral("kVob_DeMux_Enabled"), true);
        QSharedPointer<IAVFetcher> fetcher = createAVFetcher();
        QSignalSpy spy(fetcher.data(), &IAVFetcher::videoThumb);
        const QVector<qint64> times {100, 1000, 2100, 2900, 3700, 4500, 5900, 1500};
        const qint64 id = fetcher->fetchVideo(chaptersPath(), times, 160, true, false);

        QMap<qint64, QImage> thumbs;
        QElapsedTimer waited;
        waited.start();
        while (thumbs.size() < times.size() && waited.elapsed() < 120000) {
            if (spy.isEmpty() && !spy.wait(1000))
                continue;
            const QList<QVariant> signal = spy.takeFirst();
            if (signal.at(0).toLongLong() == id)
                thumbs.insert(signal.at(2).toLongLong(), signal.at(4).value<QImage>());
        }
        VeloranBaseEntry()->properties()->remove(QStringLiteral("kVob_DeMux_Enabled"));

        QCOMPARE(thumbs.size(), times.size());
        // The stream reader's frame at each time, read exactly from the decoded picture.
        VeloranBaseEntry()->properties()->setValue(QStringLiteral("kVob_DeMux_Enabled"), true);
        FFVideoStreamReader reader;
        QVERIFY(reader.openStream(chaptersPath(), AVMEDIA_TYPE_VIDEO, -1));
        VeloranBaseEntry()->properties()->remove(QStringLiteral("kVob_DeMux_Enabled"));
        for (qint64 time : times) {
            const QImage image = thumbs.value(time);
            QVERIFY2(!image.isNull(), qPrintable(QString::number(time)));
            QCOMPARE(image.width(), 160);
            const AVFramePtr frame = reader.seekAndReadNextFrame(time, true);
            QVERIFY(frame);
            const int expected = globalFrame(identify(frame.data()));
            // Times count from the first audio sample, 10 ms before the first picture.
            QVERIFY(qAbs(expected - (time - 10) / kFrameMs) <= 1);
            // The picture went through a conversion to RGB: its number is good to one frame.
            const int shown = globalFrame(identify(image));
            QVERIFY2(qAbs(shown - expected) <= 1,
                     qPrintable(QStringLiteral("at %1 ms: frame %2, wanted %3").arg(time).arg(shown).arg(expected)));
        }
    }
};

QTEST_GUILESS_MAIN(TstVobFetch)
#include "tst_vob_fetch.moc"
