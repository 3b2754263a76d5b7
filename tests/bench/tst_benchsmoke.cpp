#include "TestMedia.h"

#include <QDir>
#include <QFile>
#include <QImage>
#include <QProcess>
#include <QtTest>

#include <sys/stat.h>

// Runs the benchmark drivers on a 2 s file (and a two-clip timeline) and checks what
// they report and write.
class TestBenchSmoke : public QObject
{
    Q_OBJECT

private:
    struct Run
    {
        int exitCode = -1;
        QString out;
    };

    static Run runDriver(const QStringList &arguments, const QString &program = QStringLiteral(BENCH_FETCH_PATH))
    {
        QProcess process;
        process.setProcessChannelMode(QProcess::SeparateChannels);
        process.start(program, arguments);
        Run run;
        if (!process.waitForFinished(90000)) {
            process.kill();
            process.waitForFinished();
            return run;
        }
        run.exitCode = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -2;
        run.out = QString::fromUtf8(process.readAllStandardOutput());
        return run;
    }

    static QString thumbName(const QString &dir, int index)
    {
        return QStringLiteral("%1/thumb_%2.png").arg(dir).arg(index, 3, 10, QLatin1Char('0'));
    }

private slots:
    void conversionIsTimedBothWays()
    {
        const Run run = runDriver({"convert", TestMedia::path("bench-tiny.mp4"), "--frames", "3", "--rounds", "2"});
        QCOMPARE(run.exitCode, 0);
        QVERIFY2(run.out.startsWith("frames=3 size=320x240 format=yuv420p ") && run.out.contains(" plain_ms=")
                     && run.out.contains(" adapter_ms="),
                 qPrintable(run.out));
        QCOMPARE(runDriver({"convert", TestMedia::path("missing.mp4")}).exitCode, 1);
    }

    void thumbnailsAreWrittenPerTarget()
    {
        const QString dir = TestMedia::scratchDir("bench-thumbs");
        const Run run = runDriver({"thumbs", TestMedia::path("bench-tiny.mp4"), "--times", "200,1000,1720",
                                   "--width", "160", "--out", dir, "--batches", "2"});
        QCOMPARE(run.exitCode, 0);
        const QStringList lines = run.out.split('\n', Qt::SkipEmptyParts);
        QCOMPARE(lines.size(), 2);
        QVERIFY2(lines[0].startsWith("batch=1 thumbs=3 null=0 unwritten=0 ms="), qPrintable(lines[0]));
        QVERIFY2(lines[1].startsWith("batch=2 thumbs=3 null=0 unwritten=0 ms="), qPrintable(lines[1]));
        QVERIFY(lines[1].contains(" rss_kb=") && !lines[1].contains("rss_kb=-1"));

        QImage images[3];
        for (int i = 0; i < 3; ++i) {
            images[i] = QImage(thumbName(dir, i));
            QCOMPARE(images[i].size(), QSize(160, 120));
        }
        // Each file holds its own target: different times give different pictures.
        QVERIFY(images[0] != images[1] && images[1] != images[2]);
        QVERIFY(!QFile::exists(thumbName(dir, 3)));
    }

    void matchCountsOnlyTheFrameClosestToItsTarget()
    {
        const QString thumbs = TestMedia::scratchDir("bench-match-thumbs");
        QCOMPARE(runDriver({"thumbs", TestMedia::path("bench-tiny.mp4"), "--times", "200,1000,1720", "--out",
                            thumbs})
                     .exitCode,
                 0);
        // References built from the thumbnails themselves: target 0 is framed by
        // targets 1 and 2 and is found exact; target 1 gets target 2's picture as
        // its own and is not.
        const QString refs = TestMedia::scratchDir("bench-match-refs");
        const int layout[2][3] = {{1, 0, 2}, {0, 2, 1}};
        for (int t = 0; t < 2; ++t)
            for (int j = 0; j < 3; ++j)
                QVERIFY(QFile::copy(thumbName(thumbs, layout[t][j]),
                                    QStringLiteral("%1/ref_%2.png").arg(refs).arg(3 * t + j, 4, 10, QLatin1Char('0'))));

        const Run run = runDriver({"match", refs, thumbs, "--count", "2", "--verbose"});
        QCOMPARE(run.exitCode, 0);
        const QStringList lines = run.out.split('\n', Qt::SkipEmptyParts);
        QCOMPARE(lines.size(), 3);
        QVERIFY2(lines[0].startsWith("target=0 ") && lines[0].contains(" at=0 ") && lines[0].endsWith(" exact"),
                 qPrintable(lines[0]));
        QVERIFY2(lines[1].startsWith("target=1 ") && lines[1].endsWith(" WRONG"), qPrintable(lines[1]));
        QVERIFY2(lines[2].startsWith("exact=1 of=2 missing=0 "), qPrintable(lines[2]));
    }

    void waveformDeliversEveryValue()
    {
        const QString file = TestMedia::scratchDir("bench-wave") + "/peaks.u8";
        const Run run = runDriver({"wave", TestMedia::path("bench-tiny.mp4"), "--length", "1500", "--values", "150",
                                   "--pieces", "3", "--out", file});
        QCOMPARE(run.exitCode, 0);
        QVERIFY2(run.out.startsWith("wave values=150 pieces=3 "), qPrintable(run.out));
        QFile peaks(file);
        QVERIFY(peaks.open(QIODevice::ReadOnly));
        const QByteArray values = peaks.readAll();
        // The levels themselves are the fetcher tests' part; here the file holds what came.
        QCOMPARE(values.size(), 150);
        QVERIFY(values.count('\0') < values.size());
    }

    void timelineIsOpenedAndTimed()
    {
        // One clip with picture and sound, one with sound only.
        const QString dir = TestMedia::scratchDir("bench-timeline");
        const QString list = dir + "/timeline.list";
        QFile listFile(list);
        QVERIFY(listFile.open(QIODevice::WriteOnly));
        listFile.write(QString("%1\tav\t2000\n%2\ta\t1000\n")
                           .arg(TestMedia::path("bench-tiny.mp4"), TestMedia::path("bench-tiny.wav"))
                           .toUtf8());
        listFile.close();
        const QString editor = QStringLiteral(BENCH_EDITOR_PATH);

        const Run plan = runDriver({"plan", list}, editor);
        QCOMPARE(plan.exitCode, 0);
        QCOMPARE(plan.out, QString("%1\tav\t200,600,1000,1400,1800\t200\n%2\ta\t-\t100\n")
                               .arg(TestMedia::path("bench-tiny.mp4"), TestMedia::path("bench-tiny.wav")));

        const QString perClip = dir + "/clips.tsv";
        const Run open = runDriver({"open", list, "--per-clip", perClip}, editor);
        QCOMPARE(open.exitCode, 0);
        QVERIFY2(open.out.startsWith("clips=2 video_clips=1 audio_clips=2 thumbs=5 null_thumbs=0 empty_waves=0\n"),
                 qPrintable(open.out));
        QVERIFY2(open.out.contains("\nfirst_thumb_ms median=") && open.out.contains(" peak_rss_kb="),
                 qPrintable(open.out));
        QFile clips(perClip);
        QVERIFY(clips.open(QIODevice::ReadOnly));
        const QStringList rows = QString::fromUtf8(clips.readAll()).split('\n', Qt::SkipEmptyParts);
        QCOMPARE(rows.size(), 3);
        // The picture clip has its thumbnails and its waveform; the sound clip only a waveform.
        QVERIFY2(QRegularExpression("^0\t.*\t\\d+\t\\d+\t\\d+$").match(rows[1]).hasMatch(), qPrintable(rows[1]));
        QVERIFY2(QRegularExpression("^1\t.*\t-1\t-1\t\\d+$").match(rows[2]).hasMatch(), qPrintable(rows[2]));

        // Opened twice with a preview cache: the first process writes one entry per
        // answer, the second answers from them without writing any again (an entry
        // written anew is a new file), with the same pictures and peaks.
        const QString cacheDir = dir + "/cache";
        QDir(cacheDir).removeRecursively();
        QByteArray digests[2];
        QMap<QString, ino_t> entries[2];
        for (int open = 0; open < 2; ++open) {
            const QString digestFile = dir + "/digest.tsv";
            QCOMPARE(runDriver({"open", list, "--cache-dir", cacheDir, "--digest", digestFile}, editor).exitCode, 0);
            QFile file(digestFile);
            QVERIFY(file.open(QIODevice::ReadOnly));
            digests[open] = file.readAll();
            for (const QString &name : QDir(cacheDir).entryList(QDir::Files)) {
                struct stat info = {};
                QCOMPARE(::stat(QFile::encodeName(cacheDir + '/' + name).constData(), &info), 0);
                entries[open].insert(name, info.st_ino);
            }
        }
        QCOMPARE(digests[0].count('\n'), 7);
        QCOMPARE(digests[1], digests[0]);
        QCOMPARE(entries[0].size(), 7);
        QCOMPARE(entries[1], entries[0]);

        const Run phases = runDriver({"phases", list}, editor);
        QCOMPARE(phases.exitCode, 0);
        QVERIFY2(phases.out.contains("phase=seek_decode calls=5 ") && phases.out.contains("phase=audio_open calls=2 "),
                 qPrintable(phases.out));

        const Run hover = runDriver({"hover", TestMedia::path("bench-tiny.mp4"), "--duration", "2000", "--count", "3"},
                                    editor);
        QCOMPARE(hover.exitCode, 0);
        QVERIFY2(hover.out.startsWith("hover near n=3 median=") && hover.out.contains("\nhover far n=3 median="),
                 qPrintable(hover.out));

        QCOMPARE(runDriver({"open", dir + "/no-such.list"}, editor).exitCode, 2);
    }

    void missingFileFailsInsteadOfHanging()
    {
        const QString missing = QDir::tempPath() + "/bench-no-such-file.mp4";
        QCOMPARE(runDriver({"thumbs", missing, "--times", "0,40"}).exitCode, 1);
        QCOMPARE(runDriver({"wave", missing, "--length", "1000", "--values", "10"}).exitCode, 1);
        QCOMPARE(runDriver({"thumbs", missing}).exitCode, 2); // no times: usage
    }
};

QTEST_GUILESS_MAIN(TestBenchSmoke)
#include "tst_benchsmoke.moc"
