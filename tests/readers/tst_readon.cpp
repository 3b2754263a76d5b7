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
    QCryptographicHash hash(QCryptographicHash::Md5);
    const int size = av_image_get_buffer_size(AVPixelFormat(frame->format), frame->width, frame->height, 1);
    QByteArray bytes(size, 0);
    av_image_copy_to_buffer(reinterpret_cast<uint8_t *>(bytes.data()), size, frame->data, frame->linesize,
                            AVPixelFormat(frame->format), frame->width, frame->height, 1);
    hash.addData(bytes);
    return hash.result();
}

enum class Order { Ascending, Descending, Shuffled };

QVector<long long> targetsIn(Order order, long long lastMs, long long stepMs)
{
    QVector<long long> targets;
    for (long long t = 7; t <= lastMs + 60; t += stepMs)
        targets.append(t);
    if (order == Order::Descending)
        std::reverse(targets.begin(), targets.end());
    if (order == Order::Shuffled) {
        QRandomGenerator random(42);
        std::shuffle(targets.begin(), targets.end(), random);
    }
    return targets;
}

} // namespace

Q_DECLARE_METATYPE(Order)

class TestReadOn : public QObject
{
    Q_OBJECT

private slots:
    // Reading on from the last frame returned instead of seeking, and leaving the
    // B-frames before the target undecoded, must never show in the result: every
    // accurate read of a reader that may do both is compared with one that is made
    // to seek for each target and to decode every frame (by time, burned-in number
    // and every byte of the picture), and with the frame list ffprobe gives.
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
            // A plain seek in between leaves the next accurate read no position to
            // read on from.
            seeking.seek(0);
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

        // What reading on is for: a run of targets ahead of each other decodes less.
        // Targets behind the last one seek (but where a gap of the variable-rate file
        // keeps the frame on screen): the work is the same, less the B-frames left
        // undecoded.
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

    // Plain reads and seeks move the decoder away from the last frame an accurate
    // read returned: the next accurate read must not read on from there.
    void otherReadsMakeTheNextReadSeek()
    {
        const QVector<long long> times = frameTimesMs("readers-gop50.mp4.v.txt");
        QCOMPARE(times.size(), 250);
        FFVideoStreamReader reader;
        QVERIFY(reader.openStream(TestMedia::path("readers-gop50.mp4"), AVMEDIA_TYPE_VIDEO, -1));
        for (int n = 10; n < 200; n += 37) {
            QCOMPARE(frameNumber(reader.seekAndReadNextFrame(times[n], true).data()), n);
            // Frame n + 1 has been handed out by the plain read; reading on from n
            // would pass over it.
            QCOMPARE(frameNumber(reader.readNextFrame().data()), n + 1);
            QCOMPARE(frameNumber(reader.seekAndReadNextFrame(times[n + 1] + 1, true).data()), n + 1);
            // The plain seek lands on a later key frame; reading on from n + 1 would
            // start beyond the target.
            reader.seekAndReadNextFrame(times[n + 40], false);
            QCOMPARE(frameNumber(reader.seekAndReadNextFrame(times[n + 3], true).data()), n + 3);
        }
        // Opening another file forgets the last frame of this one: the next read
        // finds the other file's frame, although its index would allow reading on.
        QCOMPARE(frameNumber(reader.seekAndReadNextFrame(100, true).data()), 2);
        QVERIFY(reader.openStream(TestMedia::path("readers-wide.mp4"), AVMEDIA_TYPE_VIDEO, -1));
        const AVFramePtr other = reader.seekAndReadNextFrame(200, true);
        QVERIFY(other && other->width == 1920 && other->pts == 200);
    }

    // The long-GOP file has one key frame in its first 10 s: a run of targets through
    // it is one pass, each frame decoded once.
    void aRunThroughOneGopDecodesItOnce()
    {
        const QVector<long long> times = frameTimesMs("readers-longgop.mp4.v.txt");
        QVERIFY(times.size() > 250);
        CountingReader reader;
        QVERIFY(reader.openStream(TestMedia::path("readers-longgop.mp4"), AVMEDIA_TYPE_VIDEO, -1));
        for (long long t = 0; t < 9900; t += 450)
            QCOMPARE(frameNumber(reader.seekAndReadNextFrame(t, true).data()), frameShownAt(times, t));
        // Up to the frame at 9.9 s (number 247) and the one after it, plus what a
        // first seek at 0 decodes before finding its frame.
        QVERIFY2(reader.framesDecoded() <= 250, qPrintable(QString::number(reader.framesDecoded())));
    }
};

QTEST_GUILESS_MAIN(TestReadOn)
#include "tst_readon.moc"
