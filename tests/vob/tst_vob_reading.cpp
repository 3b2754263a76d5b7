#include "TestMedia.h"
#include "VobTestKit.h"

#include "VeloranBaseEntry.h"
#include "VeloranDec/FFDemuxer.h"
#include "VeloranDec/FFVideoStreamReader.h"
#include "VeloranDec/FFVobDemuxer.h"

#include <QtTest>

using namespace Veloran;
using namespace VobTestKit;

// Reading a joined VOB through the stream reader, with the chapter-aware demuxer
// switched on by the base library's setting.
class TstVobReading : public QObject
{
    Q_OBJECT
private:
    static void setVobEnabled(bool on)
    {
        VeloranBaseEntry()->properties()->setValue(QStringLiteral("kVob_DeMux_Enabled"), on);
    }

private Q_SLOTS:
    void cleanup() { VeloranBaseEntry()->properties()->remove(QStringLiteral("kVob_DeMux_Enabled")); }

    void accurateSeeksShowTheFrameAtTheTime()
    {
        setVobEnabled(true);
        QVERIFY(qobject_cast<FFVobDemuxer *>(FFDemuxer::createDemuxer(chaptersPath()).data()));
        FFVideoStreamReader reader;
        QVERIFY(reader.openStream(chaptersPath(), AVMEDIA_TYPE_VIDEO, -1));
        QVERIFY(qAbs(reader.demuxDurationMs() - 6000) <= 120);
        QVERIFY(qAbs(reader.durationMs() - 6000) <= 120);

        // Forward, then backward across the chapters, landing on both sides of each boundary.
        for (qint64 target : {0, 260, 1000, 1990, 2030, 2500, 2900, 3590, 3640, 4700, 5950, 5000, 3300, 1500, 100}) {
            const AVFramePtr frame = reader.seekAndReadNextFrame(target, true);
            QVERIFY2(frame, qPrintable(QString::number(target)));
            const int shown = globalFrame(identify(frame.data()));
            // Times count from the first audio sample, 10 ms before the first picture.
            const qint64 expected = qMax<qint64>(0, (target - 10) / kFrameMs);
            QVERIFY2(qAbs(shown - expected) <= 1,
                     qPrintable(QStringLiteral("at %1 ms: frame %2 (%3 ms), wanted %4").arg(target).arg(shown).arg(frame->pts).arg(expected)));
            QVERIFY2(frame->pts <= target + kFrameMs && frame->pts > target - 2 * kFrameMs,
                     qPrintable(QStringLiteral("at %1 ms the frame says %2 ms").arg(target).arg(frame->pts)));
        }

        // Reading on from a seek runs through the next chapter without a stumble.
        AVFramePtr frame = reader.seekAndReadNextFrame(1800, true);
        QVERIFY(frame);
        int previous = globalFrame(identify(frame.data()));
        for (int i = 0; i < 20; ++i) {
            frame = reader.readNextFrame();
            QVERIFY(frame);
            const int shown = globalFrame(identify(frame.data()));
            QCOMPARE(shown, previous + 1);
            QVERIFY(qAbs(frame->pts - shown * kFrameMs - 10) <= kFrameMs);
            previous = shown;
        }
    }
};

QTEST_GUILESS_MAIN(TstVobReading)
#include "tst_vob_reading.moc"
