#include "FuzzTargets.h"
#include "ScratchFiles.h"
#include "TestMedia.h"

#include "LogCapture.h"

#include "VeloranDec/AudioSource.h"
#include "VeloranDec/FFAudioStreamReader.h"
#include "VeloranDec/FFDemuxer.h"
#include "VeloranDec/FFVideoStreamReader.h"
#include "VeloranDec/ReadDeadline.h"
#include "VeloranDec/IVideoFrame.h"
#include "VeloranDec/VideoSource.h"

#include <QDir>
#include <QtEndian>
#include <QtTest>

#include <atomic>
#include <functional>
#include <thread>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

extern "C" {
#include <libavutil/log.h>
}

using namespace Veloran;

namespace {

// All packets of a file, at most 100000; -1 when it does not open.
int countPackets(const QString &path)
{
    FFDemuxer demuxer;
    if (!demuxer.open(path))
        return -1;
    int count = 0;
    while (count < 100000 && demuxer.readPacket())
        ++count;
    return count;
}

// A BMP whose header claims width x height pixels of 24 bits, with a few bytes of data.
QByteArray bmpClaiming(qint32 width, qint32 height)
{
    QByteArray bmp(54 + 64, '\0');
    bmp[0] = 'B';
    bmp[1] = 'M';
    qToLittleEndian<quint32>(quint32(bmp.size()), bmp.data() + 2);
    qToLittleEndian<quint32>(54, bmp.data() + 10);
    qToLittleEndian<quint32>(40, bmp.data() + 14);
    qToLittleEndian<qint32>(width, bmp.data() + 18);
    qToLittleEndian<qint32>(height, bmp.data() + 22);
    qToLittleEndian<quint16>(1, bmp.data() + 26);
    qToLittleEndian<quint16>(24, bmp.data() + 28);
    return bmp;
}

// A fifo fed by a thread: `head`, then a byte of `trickle` every 20 ms until destroyed. Opened read-write,
// so the demuxer's open never waits for a writer and writes never fail.
class SlowPipe
{
public:
    SlowPipe(const QString &path, const QByteArray &head, char trickle)
        : mPath(QFile::encodeName(path))
    {
        ::unlink(mPath.constData());
        mFd = ::mkfifo(mPath.constData(), 0600) == 0 ? ::open(mPath.constData(), O_RDWR) : -1;
        if (mFd >= 0)
            mThread = std::thread([this, head, trickle] {
                // Pipe writes up to 4096 bytes are whole or fail.
                for (int done = 0; done < head.size() && !mStop; done += 4096)
                    if (::write(mFd, head.constData() + done, size_t(qMin(head.size() - done, 4096))) <= 0)
                        return;
                while (!mStop && ::write(mFd, &trickle, 1) == 1)
                    std::this_thread::sleep_for(std::chrono::milliseconds(20)); // the pace of the trickle
            });
    }
    ~SlowPipe()
    {
        mStop = true;
        if (mThread.joinable())
            mThread.join();
        if (mFd >= 0)
            ::close(mFd);
        ::unlink(mPath.constData());
    }
    bool isOk() const { return mFd >= 0; }

private:
    QByteArray mPath;
    int mFd = -1;
    std::atomic<bool> mStop {false};
    std::thread mThread;
};

} // namespace

// Saved fuzz findings, truncated files, headers claiming huge pictures, sources that never end.
class HardenHostile : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        Fuzz::silenceLogs();
        av_log_set_level(AV_LOG_QUIET);
    }

    // Every saved finding and seed through the fuzzers' code; a failing input aborts.
    void savedFuzzInputsStillPass_data()
    {
        QTest::addColumn<QString>("target");
        QTest::addColumn<int>("least");
        QTest::newRow("timeline") << "timeline" << 5;
        QTest::newRow("utf8") << "utf8" << 7;
        QTest::newRow("media") << "media" << 1;
        QTest::newRow("sources") << "sources" << 3;
    }
    void savedFuzzInputsStillPass()
    {
        QFETCH(QString, target);
        QFETCH(int, least);
        const std::function<void(const uint8_t *, size_t)> run = target == "timeline" ? Fuzz::fuzzTimeline
            : target == "utf8"                                                      ? Fuzz::fuzzUtf8
            : target == "sources"                                                   ? Fuzz::fuzzSources
                                                                                    : Fuzz::fuzzMedia;
        QFileInfoList inputs;
        for (const char *kind : {"/seeds/", "/regressions/"})
            inputs += QDir(QStringLiteral(VR_FUZZ_DIR) + kind + target).entryInfoList(QDir::Files | QDir::Hidden);
        for (const QFileInfo &info : inputs) {
            const QByteArray bytes = ScratchFiles::read(info.filePath());
            qInfo().noquote() << "replaying" << info.fileName();
            run(reinterpret_cast<const uint8_t *>(bytes.constData()), size_t(bytes.size()));
        }
        QVERIFY(inputs.size() >= least);
    }

    // FFmpeg's interrupt callback fires once the innermost limit passed; inner limits never extend outer ones.
    void deadlinesNest()
    {
        ReadDeadline deadline;
        const AVIOInterruptCB callback = deadline.interruptCallback();
        QCOMPARE(callback.callback(callback.opaque), 0);
        for (const bool innerLonger : {false, true}) {
            const ReadDeadline::Scope outer(deadline, innerLonger ? 0 : 600000);
            const ReadDeadline::Scope inner(deadline, innerLonger ? 600000 : 0);
            QCOMPARE(callback.callback(callback.opaque), 1);
        }
        QCOMPARE(callback.callback(callback.opaque), 0);
    }

    // Every prefix is answered: no more than the whole holds, very short ones refused, long streamable ones
    // giving their first frame.
    void truncatedFilesAreAnswered()
    {
        const QString dir = TestMedia::scratchDir(QStringLiteral("harden-truncated"));
        for (const QString name : {QStringLiteral("harden-cut.ts"), QStringLiteral("sample.mp4")}) {
            const QByteArray whole = ScratchFiles::read(TestMedia::path(name));
            const int allPackets = countPackets(TestMedia::path(name));
            QVERIFY(allPackets > 50);
            const bool streamable = name.endsWith(QLatin1String(".ts"));
            for (int i = 0; i < 30; ++i) {
                // Dense near the start, where the headers are.
                const int size = i < 8 ? i * 37 : int(qint64(whole.size()) * (i - 7) / 22);
                const QString path = ScratchFiles::write(dir + QStringLiteral("/cut-%1.%2").arg(i).arg(QFileInfo(name).suffix()), whole.left(size));
                const int packets = countPackets(path);
                QVERIFY2(packets <= allPackets && (size >= 200 || packets == -1), qPrintable(path));
                FFVideoStreamReader video;
                if (video.openStream(path, AVMEDIA_TYPE_VIDEO, -1)) {
                    const AVFramePtr first = video.seekAndReadNextFrame(0, true);
                    QVERIFY2(!streamable || size < whole.size() / 2 || (first && first->pts < 100), qPrintable(path));
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

    // Headers claiming gigantic pictures give no frame (decoders refuse to allocate); a small one decodes.
    void hugePictureClaimsGiveNoFrame()
    {
        const QString dir = TestMedia::scratchDir(QStringLiteral("harden-huge"));
        for (const QSize size : {QSize(100000, 100000), QSize(16385, 16385), QSize(1, -0x7fffffff)}) {
            const QString path = ScratchFiles::write(dir + "/huge.bmp", bmpClaiming(size.width(), size.height()));
            FFVideoStreamReader reader;
            if (reader.openStream(path, AVMEDIA_TYPE_VIDEO, -1))
                QVERIFY(!reader.readNextFrame() && !reader.seekAndReadNextFrame(0, true));
            VideoSource source;
            if (source.openVideo(path, {AV_PIX_FMT_RGBA}, 0))
                QVERIFY(!source.seekAndReadNextAdaptFrame(0, true));
        }
        FFVideoStreamReader reader;
        QVERIFY(reader.openStream(ScratchFiles::write(dir + "/small.bmp", bmpClaiming(2, 2)), AVMEDIA_TYPE_VIDEO, -1));
        const AVFramePtr frame = reader.readNextFrame();
        QVERIFY(frame && frame->width == 2);
    }

    // Derived sizes are bounded, giving nothing and a log line: an extreme aspect at width 320 would be
    // 320 x 327680, audio claiming 1 Hz would become 48000 samples for each of its own.
    void derivedSizesAreBounded()
    {
        LogCapture log;
        VideoSource tall;
        QVERIFY(tall.openVideo(TestMedia::path(QStringLiteral("harden-tall.png")), {AV_PIX_FMT_RGB24}, 320));
        QVERIFY(!tall.seekAndReadNextAdaptFrame(0, true));
        QVERIFY(log.hasRecord(QStringLiteral("---player--- output size out of range: 320x327680")));
        tall.resetOutputWidth(8);
        const QSharedPointer<IVideoFrame> narrow = tall.seekAndReadNextAdaptFrame(0, true);
        QVERIFY(narrow && narrow->frameSize() == QSize(8, 8192));

        QByteArray wav = ScratchFiles::read(TestMedia::path(QStringLiteral("sine.wav")));
        QVERIFY(wav.mid(12, 4) == "fmt ");
        qToLittleEndian<quint32>(1, wav.data() + 24); // samples per second
        qToLittleEndian<quint32>(2, wav.data() + 28); // bytes per second
        const QString slow = ScratchFiles::write(TestMedia::scratchDir(QStringLiteral("harden-rate")) + "/1hz.wav", wav);
        log.clear();
        AudioSource audio;
        QVERIFY(audio.open(slow, AV_SAMPLE_FMT_U8, 1, -1, 48000));
        QVERIFY(!audio.readNextAdaptFrame());
        QVERIFY(log.hasRecordStartingWith(QStringLiteral("create buffer")));
        // At its own rate the same audio converts.
        QVERIFY(audio.open(slow, AV_SAMPLE_FMT_U8, 1, -1, 1));
        QVERIFY(audio.readNextAdaptFrame());
    }

    // A source that trickles in forever (a pipe, a stalled share): opening or reading gives up.
    void endlessSourcesGiveUp()
    {
        const QString dir = TestMedia::scratchDir(QStringLiteral("harden-endless"));
        { // Nothing but zeros: no format is ever recognised.
            SlowPipe pipe(dir + "/zeros", QByteArray(), '\0');
            QVERIFY(pipe.isOk() && !FFDemuxer().open(dir + "/zeros"));
        }
        // A real stream start, then endless garbage: the start reads, then reading stops.
        const QByteArray whole = ScratchFiles::read(TestMedia::path(QStringLiteral("harden-cut.ts")));
        SlowPipe pipe(dir + "/stalling.ts", whole.left(whole.size() * 3 / 4), '\x55');
        QVERIFY(pipe.isOk());
        FFDemuxer demuxer;
        QVERIFY(demuxer.open(dir + "/stalling.ts"));
        int packets = 0;
        while (demuxer.readPacket())
            ++packets;
        QVERIFY(packets > 10 && packets <= countPackets(TestMedia::path(QStringLiteral("harden-cut.ts"))));
        QVERIFY(!demuxer.readPacket(0)); // once given up, later reads give up too
    }
};

QTEST_GUILESS_MAIN(HardenHostile)
#include "tst_harden_hostile.moc"
