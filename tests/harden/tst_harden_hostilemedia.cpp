#include "TestMedia.h"

#include "VeloranDec/FFAudioStreamReader.h"
#include "VeloranDec/FFDemuxer.h"
#include "VeloranDec/FFVideoStreamReader.h"
#include "VeloranDec/ReadDeadline.h"
#include "VeloranDec/VideoSource.h"

#include <QDir>
#include <QFile>
#include <QtEndian>
#include <QtTest>

#include <atomic>
#include <thread>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

extern "C" {
#include <libavutil/log.h>
}

using namespace Veloran;

namespace {

QByteArray readAll(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

void writeFile(const QString &path, const QByteArray &bytes)
{
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    QCOMPARE(file.write(bytes), bytes.size());
}

// All packets of a file, at most `limit`; -1 when it does not open.
int countPackets(const QString &path, int limit = 100000)
{
    FFDemuxer demuxer;
    if (!demuxer.open(path))
        return -1;
    int count = 0;
    while (count < limit && demuxer.readPacket())
        ++count;
    return count;
}

quint32 crc32(const QByteArray &bytes)
{
    quint32 crc = 0xffffffffu;
    for (const char byte : bytes) {
        crc ^= static_cast<quint8>(byte);
        for (int bit = 0; bit < 8; ++bit)
            crc = (crc >> 1) ^ (0xedb88320u & (0u - (crc & 1u)));
    }
    return ~crc;
}

QByteArray pngChunk(const QByteArray &type, const QByteArray &data)
{
    QByteArray chunk(4, '\0');
    qToBigEndian<quint32>(static_cast<quint32>(data.size()), chunk.data());
    const QByteArray body = type + data;
    QByteArray crc(4, '\0');
    qToBigEndian<quint32>(crc32(body), crc.data());
    return chunk + body + crc;
}

// A well-formed PNG whose header claims width x height pixels of RGB; its image
// data is one black pixel.
QByteArray pngClaiming(quint32 width, quint32 height)
{
    QByteArray ihdr(13, '\0');
    qToBigEndian<quint32>(width, ihdr.data());
    qToBigEndian<quint32>(height, ihdr.data() + 4);
    ihdr[8] = 8; // bit depth
    ihdr[9] = 2; // RGB
    return QByteArray("\x89PNG\r\n\x1a\n", 8) + pngChunk("IHDR", ihdr)
        + pngChunk("IDAT", QByteArray::fromHex("789c63606060000000040001")) + pngChunk("IEND", {});
}

// A BMP whose header claims width x height pixels of 24 bits, with a few bytes of data.
QByteArray bmpClaiming(qint32 width, qint32 height)
{
    QByteArray bmp(54 + 64, '\0');
    bmp[0] = 'B';
    bmp[1] = 'M';
    qToLittleEndian<quint32>(static_cast<quint32>(bmp.size()), bmp.data() + 2);
    qToLittleEndian<quint32>(54, bmp.data() + 10);
    qToLittleEndian<quint32>(40, bmp.data() + 14);
    qToLittleEndian<qint32>(width, bmp.data() + 18);
    qToLittleEndian<qint32>(height, bmp.data() + 22);
    qToLittleEndian<quint16>(1, bmp.data() + 26);
    qToLittleEndian<quint16>(24, bmp.data() + 28);
    return bmp;
}

// Feeds a named pipe from a thread: `head` at once, then one byte of `trickle`
// every 20 ms until stopped. The pipe is held open for reading and writing, so the
// demuxer's open never waits for a writer and writes never fail.
class SlowPipe
{
public:
    SlowPipe(const QString &path, QByteArray head, char trickle)
        : mPath(path)
    {
        ::unlink(QFile::encodeName(path).constData());
        mOk = ::mkfifo(QFile::encodeName(path).constData(), 0600) == 0;
        mFd = mOk ? ::open(QFile::encodeName(path).constData(), O_RDWR) : -1;
        mOk = mFd >= 0;
        if (mOk)
            mThread = std::thread([this, head = std::move(head), trickle] { feed(head, trickle); });
    }
    ~SlowPipe()
    {
        mStop = true;
        if (mThread.joinable())
            mThread.join();
        if (mFd >= 0)
            ::close(mFd);
        ::unlink(QFile::encodeName(mPath).constData());
    }
    bool isOk() const { return mOk; }

private:
    void feed(const QByteArray &head, char trickle)
    {
        const char *data = head.constData();
        qint64 left = head.size();
        while (left > 0 && !mStop) {
            const ssize_t written = ::write(mFd, data, static_cast<size_t>(qMin<qint64>(left, 4096)));
            if (written <= 0)
                return;
            data += written;
            left -= written;
        }
        while (!mStop) {
            if (::write(mFd, &trickle, 1) != 1)
                return;
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
    }

    QString mPath;
    int mFd = -1;
    bool mOk = false;
    std::atomic<bool> mStop {false};
    std::thread mThread;
};

} // namespace

class HardenHostileMedia : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { av_log_set_level(AV_LOG_QUIET); }

    // The interrupt callback FFmpeg polls: quiet while no call is limited, firing
    // once the innermost limit has passed; inner limits never extend outer ones.
    void deadlinesNest()
    {
        ReadDeadline deadline;
        const AVIOInterruptCB callback = deadline.interruptCallback();
        QCOMPARE(callback.callback(callback.opaque), 0);
        {
            const ReadDeadline::Scope outer(deadline, 600000);
            QCOMPARE(callback.callback(callback.opaque), 0);
            {
                const ReadDeadline::Scope inner(deadline, 0);
                QCOMPARE(callback.callback(callback.opaque), 1);
            }
            QCOMPARE(callback.callback(callback.opaque), 0);
        }
        {
            const ReadDeadline::Scope outer(deadline, 0);
            const ReadDeadline::Scope inner(deadline, 600000);
            QCOMPARE(callback.callback(callback.opaque), 1);
        }
        QCOMPARE(callback.callback(callback.opaque), 0);
        QCOMPARE(callback.callback(nullptr), 0);
    }

    // Every prefix of a file is answered: nothing more than the whole file holds,
    // the very short ones refused, long ones still giving their first frame.
    void truncatedFilesAreAnswered()
    {
        const QString dir = TestMedia::scratchDir(QStringLiteral("harden-truncated"));
        for (const QString name : {QStringLiteral("harden-cut.ts"), QStringLiteral("sample.mp4")}) {
            const QByteArray whole = readAll(TestMedia::path(name));
            QVERIFY(whole.size() > 10000);
            const int allPackets = countPackets(TestMedia::path(name));
            QVERIFY(allPackets > 50);
            const bool streamable = name.endsWith(QLatin1String(".ts"));

            const int cuts = 40;
            for (int i = 0; i < cuts; ++i) {
                // Dense near the start, where the headers are.
                const int size = i < 10 ? i * 37 : static_cast<int>(qint64(whole.size()) * (i - 9) / (cuts - 9));
                const QString path = dir + QStringLiteral("/cut-%1-%2.%3").arg(i).arg(size).arg(QFileInfo(name).suffix());
                writeFile(path, whole.left(size));

                const int packets = countPackets(path);
                QVERIFY2(packets <= allPackets, qPrintable(path));
                if (size < 200)
                    QVERIFY2(packets == -1, qPrintable(path));

                FFVideoStreamReader video;
                if (video.openStream(path, AVMEDIA_TYPE_VIDEO, -1)) {
                    const AVFramePtr first = video.seekAndReadNextFrame(0, true);
                    if (streamable && size >= whole.size() / 2)
                        QVERIFY2(first && first->pts < 100, qPrintable(path));
                    const AVFramePtr late = video.seekAndReadNextFrame(1500, true);
                    QVERIFY(!late || (late->pts >= 0 && late->pts <= 2100));
                    for (const AVFramePtr &frame : video.revertSeekAndReadFrame(1000, 1))
                        QVERIFY(frame && frame->pts < 1000);
                } else {
                    QVERIFY2(!streamable || size < whole.size() / 2, qPrintable(path));
                }
                FFAudioStreamReader audio;
                if (audio.openStream(path, AVMEDIA_TYPE_AUDIO, -1)) {
                    const AVFramePtr frame = audio.seekAndReadNextFrame(1000, true);
                    QVERIFY(!frame || frame->nb_samples > 0);
                }
            }
        }
    }

    // Headers that claim gigantic pictures give no frame (and allocate nothing
    // of that size); an ordinary picture of the same kinds still decodes.
    void hugePictureClaimsGiveNoFrame()
    {
        const QString dir = TestMedia::scratchDir(QStringLiteral("harden-huge"));
        const struct
        {
            const char *name;
            QByteArray bytes;
        } files[] = {
            {"huge.png", pngClaiming(100000, 100000)},
            {"wide.png", pngClaiming(1u << 30, 1)},
            {"over-limit.png", pngClaiming(16385, 16385)},
            {"huge.bmp", bmpClaiming(100000, 100000)},
            {"tall.bmp", bmpClaiming(1, -0x7fffffff)},
        };
        for (const auto &file : files) {
            const QString path = dir + QLatin1Char('/') + QLatin1String(file.name);
            writeFile(path, file.bytes);
            FFVideoStreamReader reader;
            if (reader.openStream(path, AVMEDIA_TYPE_VIDEO, -1)) {
                QVERIFY2(!reader.readNextFrame(), file.name);
                QVERIFY2(!reader.seekAndReadNextFrame(0, true), file.name);
            }
            VideoSource source;
            if (source.openVideo(path, {AV_PIX_FMT_RGBA}, 0))
                QVERIFY2(!source.seekAndReadNextAdaptFrame(0, true), file.name);
        }

        // The crafted headers themselves are sound: the same PNG at a small size decodes.
        const QString small = dir + QStringLiteral("/small.png");
        writeFile(small, pngClaiming(1, 1));
        FFVideoStreamReader reader;
        QVERIFY(reader.openStream(small, AVMEDIA_TYPE_VIDEO, -1));
        const AVFramePtr frame = reader.readNextFrame();
        QVERIFY(frame);
        QCOMPARE(frame->width, 1);
    }

    // A source that keeps trickling in and never ends (a pipe, a stalled share):
    // opening gives up, or reading does, instead of holding the thread forever.
    void endlessSourcesGiveUp()
    {
        const QString dir = TestMedia::scratchDir(QStringLiteral("harden-endless"));

        // Nothing but zeros: no format is ever recognised.
        {
            SlowPipe pipe(dir + QStringLiteral("/zeros"), QByteArray(), '\0');
            QVERIFY(pipe.isOk());
            FFDemuxer demuxer;
            QVERIFY(!demuxer.open(dir + QStringLiteral("/zeros")));
            QVERIFY(!demuxer.formatCtx());
        }

        // A real stream start, then endless garbage: the start reads, then reading stops.
        {
            const QByteArray whole = readAll(TestMedia::path(QStringLiteral("harden-cut.ts")));
            const QString path = dir + QStringLiteral("/stalling.ts");
            SlowPipe pipe(path, whole.left(whole.size() * 3 / 4), '\x55');
            QVERIFY(pipe.isOk());
            FFDemuxer demuxer;
            QVERIFY(demuxer.open(path));
            int packets = 0;
            while (demuxer.readPacket())
                ++packets;
            QVERIFY(packets > 10);
            QVERIFY(packets <= countPackets(TestMedia::path(QStringLiteral("harden-cut.ts"))));
            // Once given up, later reads give up too.
            QVERIFY(!demuxer.readPacket(0));
        }
    }
};

QTEST_GUILESS_MAIN(HardenHostileMedia)
#include "tst_harden_hostilemedia.moc"
