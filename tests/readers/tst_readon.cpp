#include "FFmpegJoint.h"
#include "ReaderTestKit.h"
#include "TestMedia.h"

#include "VeloranDec/FFDecoder.h"
#include "VeloranDec/FFVideoStreamReader.h"

#include <QCryptographicHash>
#include <QRandomGenerator>
#include <QtTest>

#include <algorithm>

extern "C" {
#include <libavutil/imgutils.h>
}

using namespace Veloran;
using namespace ReaderTestKit;

namespace {

// A video reader that tells how many frames its decoder has put out so far.
class CountingReader : public FFVideoStreamReader
{
public:
    int framesDecoded() const { return mDecoder ? mDecoder->codecContext()->frame_number : -1; }
};

// The picture of a frame, byte for byte.
QByteArray pictureHash(const AVFrame *frame)
{
    const int size = av_image_get_buffer_size(AVPixelFormat(frame->format), frame->width, frame->height, 1);
    QByteArray bytes(size, 0);
    av_image_copy_to_buffer(reinterpret_cast<uint8_t *>(bytes.data()), size, frame->data, frame->linesize,
                            AVPixelFormat(frame->format), frame->width, frame->height, 1);
    return QCryptographicHash::hash(bytes, QCryptographicHash::Md5);
}

enum class Order { Ascending, Descending, Shuffled };

QVector<long long> targetsIn(Order order, long long lastMs, long long stepMs)
{
    QVector<long long> targets;
    for (long long t = 7; t <= lastMs + 60; t += stepMs)
        targets.append(t);
    if (order == Order::Descending)
        std::reverse(targets.begin(), targets.end());
    if (order == Order::Shuffled)
        std::shuffle(targets.begin(), targets.end(), QRandomGenerator(42));
    return targets;
}

} // namespace

Q_DECLARE_METATYPE(Order)

class TestReadOn : public QObject
{
    Q_OBJECT

private slots:
    // Reading on instead of seeking and skipping hidden B-frames never shows: each read equals a reader that seeks
    // and decodes every frame (time, picture bytes) and ffprobe's frame list (burned-in number).
    void readingOnReturnsWhatASeekReturns_data()
    {
        QTest::addColumn<QString>("media");
        QTest::addColumn<Order>("order");
        QTest::addColumn<long long>("stepMs");

        // x264 chose no B-frames for the long-GOP, transport stream and variable-rate files.
        const QStringList media {"readers-gop50.mp4", "readers-longgop.mp4", "readers-ntsc.mp4",
                                 "readers-opengop.mp4", "readers-opengop.mkv", "readers-offset.ts",
                                 "readers-vfr.mp4", "readers-intra.mp4"};
        for (const QString &name : media) {
            const QByteArray tag = name.toUtf8();
            QTest::newRow(tag + ", ascending, a frame or two apart") << name << Order::Ascending << 53LL;
            QTest::newRow(tag + ", ascending, 0.7 s apart") << name << Order::Ascending << 709LL;
            QTest::newRow(tag + ", descending") << name << Order::Descending << 131LL;
            QTest::newRow(tag + ", shuffled") << name << Order::Shuffled << 97LL;
        }
    }

    void readingOnReturnsWhatASeekReturns()
    {
        QFETCH(QString, media);
        QFETCH(Order, order);
        QFETCH(long long, stepMs);

        CountingReader reader;
        CountingReader seeking;
        QVERIFY(reader.openStream(TestMedia::path(media), AVMEDIA_TYPE_VIDEO, -1));
        QVERIFY(seeking.openStream(TestMedia::path(media), AVMEDIA_TYPE_VIDEO, -1));
        seeking.setSkipsHiddenFrames(false);
        // Frame times count from the first audio sample, when there is audio.
        const QVector<long long> times = shifted(frameTimesMs(media + ".v.txt"), std::max(0LL, reader.startTimeMs()));
        QVERIFY(times.size() > 70);

        for (long long t : targetsIn(order, times.last(), stepMs)) {
            seeking.seek(0); // leaves no position to read on from
            const AVFramePtr expected = seeking.seekAndReadNextFrame(t, true);
            const AVFramePtr frame = reader.seekAndReadNextFrame(t, true);
            const QString where = QString("at %1 ms").arg(t);
            QVERIFY2(expected && frame, qPrintable(where));
            QVERIFY2(frame->pts == expected->pts,
                     qPrintable(where + QString(": %1 ms instead of %2").arg(frame->pts).arg(expected->pts)));
            QVERIFY2(pictureHash(frame.data()) == pictureHash(expected.data()), qPrintable(where));
            const int shown = frameShownAt(times, t);
            QVERIFY2(frameNumber(frame.data()) == shown,
                     qPrintable(where + QString(": frame %1 instead of %2").arg(frameNumber(frame.data())).arg(shown)));
        }
        // Targets ahead decode less; targets behind seek (save where a variable-rate gap keeps the frame), so
        // the work is the same less the B-frames left undecoded.
        const QString work = QString("%1 vs %2 frames").arg(reader.framesDecoded()).arg(seeking.framesDecoded());
        if (order == Order::Ascending && stepMs < 100 && !media.contains("intra"))
            QVERIFY2(reader.framesDecoded() < seeking.framesDecoded() / 2, qPrintable(work));
        const bool bFrames = media.contains("gop50") || media.contains("ntsc") || media.contains("opengop");
        if (order == Order::Descending && bFrames)
            QVERIFY2(reader.framesDecoded() < seeking.framesDecoded(), qPrintable(work));
        else if (order == Order::Descending && media.contains("vfr"))
            QVERIFY2(reader.framesDecoded() <= seeking.framesDecoded(), qPrintable(work));
        else if (order == Order::Descending)
            QCOMPARE(reader.framesDecoded(), seeking.framesDecoded());
    }

    // Plain reads and seeks move the decoder away: the next accurate read must not read on.
    void otherReadsMakeTheNextReadSeek()
    {
        const QVector<long long> times = frameTimesMs("readers-gop50.mp4.v.txt");
        QCOMPARE(times.size(), 250);
        FFVideoStreamReader reader;
        QVERIFY(reader.openStream(TestMedia::path("readers-gop50.mp4"), AVMEDIA_TYPE_VIDEO, -1));
        for (int n = 10; n < 200; n += 37) {
            QCOMPARE(frameNumber(reader.seekAndReadNextFrame(times[n], true).data()), n);
            // The plain read handed out n + 1; reading on from n would pass over it.
            QCOMPARE(frameNumber(reader.readNextFrame().data()), n + 1);
            QCOMPARE(frameNumber(reader.seekAndReadNextFrame(times[n + 1] + 1, true).data()), n + 1);
            // The plain seek lands on a later key frame, beyond the target.
            reader.seekAndReadNextFrame(times[n + 40], false);
            QCOMPARE(frameNumber(reader.seekAndReadNextFrame(times[n + 3], true).data()), n + 3);
        }
        // Opening another file forgets the last frame, although its index would allow reading on.
        QCOMPARE(frameNumber(reader.seekAndReadNextFrame(100, true).data()), 2);
        QVERIFY(reader.openStream(TestMedia::path("readers-wide.mp4"), AVMEDIA_TYPE_VIDEO, -1));
        const AVFramePtr other = reader.seekAndReadNextFrame(200, true);
        QVERIFY(other && other->width == 1920 && other->pts == 200);
    }
};

QTEST_GUILESS_MAIN(TestReadOn)
#include "tst_readon.moc"
