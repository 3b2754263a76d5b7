#include "ScratchFiles.h"
#include "TestMedia.h"

#include <QDir>
#include <QFile>
#include <QImage>
#include <QProcess>
#include <QtTest>

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

    const QString tiny = TestMedia::path("bench-tiny.mp4");
    const QString timelineList = TestMedia::scratchDir("bench-timeline") + "/timeline.list";
    const QString peaksFile = TestMedia::scratchDir("bench-wave") + "/peaks.u8";

    static QString thumbName(const QString &dir, int index)
    {
        return QStringLiteral("%1/thumb_%2.png").arg(dir).arg(index, 3, 10, QLatin1Char('0'));
    }

private slots:
    void initTestCase()
    {
        // One clip with picture and sound, one with sound only.
        const QString list = QString("%1\tav\t2000\n%2\ta\t1000\n").arg(tiny, TestMedia::path("bench-tiny.wav"));
        QVERIFY(!ScratchFiles::write(timelineList, list.toUtf8()).isEmpty());
    }

    // Each driver command runs and reports in its format; missing input and bad usage
    // fail with their exit codes instead of hanging.
    void commandsReportOrFail_data()
    {
        QTest::addColumn<QString>("program");
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QString>("report"); // a pattern over the whole output
        const QString fetch = QStringLiteral(BENCH_FETCH_PATH), editor = QStringLiteral(BENCH_EDITOR_PATH);
        const QString missing = QDir::tempPath() + "/bench-no-such-file.mp4";
        QTest::newRow("convert") << fetch << QStringList{"convert", tiny, "--frames", "3", "--rounds", "2"} << 0
                                 << "^frames=3 size=320x240 format=yuv420p .* plain_ms=.* adapter_ms=";
        QTest::newRow("wave") << fetch << QStringList{"wave", tiny, "--length", "1500", "--values", "150", "--pieces", "3", "--out", peaksFile}
                              << 0 << "^wave values=150 pieces=3 ";
        QTest::newRow("plan") << editor << QStringList{"plan", timelineList} << 0
                              << QString("^%1\tav\t200,600,1000,1400,1800\t200\n%2\ta\t-\t100\n$")
                                     .arg(QRegularExpression::escape(tiny), QRegularExpression::escape(TestMedia::path("bench-tiny.wav")));
        QTest::newRow("phases") << editor << QStringList{"phases", timelineList} << 0
                                << "phase=seek_decode calls=5 .*phase=audio_open calls=2 |phase=audio_open calls=2 .*phase=seek_decode calls=5 ";
        QTest::newRow("hover") << editor << QStringList{"hover", tiny, "--duration", "2000", "--count", "3"} << 0
                               << "^hover near n=3 median=.*\nhover far n=3 median=";
        QTest::newRow("convert, missing file") << fetch << QStringList{"convert", missing} << 1 << "";
        QTest::newRow("thumbs, missing file") << fetch << QStringList{"thumbs", missing, "--times", "0,40"} << 1 << "";
        QTest::newRow("wave, missing file") << fetch << QStringList{"wave", missing, "--length", "1000", "--values", "10"} << 1 << "";
        QTest::newRow("thumbs without times") << fetch << QStringList{"thumbs", missing} << 2 << "";
        QTest::newRow("open, missing list") << editor << QStringList{"open", timelineList + ".missing"} << 2 << "";
    }
    void commandsReportOrFail()
    {
        QFETCH(QString, program);
        QFETCH(QStringList, arguments);
        QFETCH(int, exitCode);
        QFETCH(QString, report);
        const Run run = runDriver(arguments, program);
        QCOMPARE(run.exitCode, exitCode);
        QVERIFY2(QRegularExpression(report, QRegularExpression::DotMatchesEverythingOption).match(run.out).hasMatch(),
                 qPrintable(run.out));
        if (arguments.contains(peaksFile)) {
            // The levels themselves are the fetcher tests' part; here the file holds what came.
            const QByteArray values = ScratchFiles::read(peaksFile);
            QVERIFY(values.size() == 150 && values.count('\0') < values.size());
        }
    }

    void thumbnailsAreWrittenPerTarget()
    {
        const QString dir = TestMedia::scratchDir("bench-thumbs");
        const Run run = runDriver({"thumbs", tiny, "--times", "200,1000,1720", "--width", "160", "--out", dir, "--batches", "2"});
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
        QCOMPARE(runDriver({"thumbs", tiny, "--times", "200,1000,1720", "--out", thumbs}).exitCode, 0);
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

    void timelineIsOpenedAndTimed()
    {
        const QString perClip = QFileInfo(timelineList).path() + "/clips.tsv";
        const Run open = runDriver({"open", timelineList, "--per-clip", perClip}, QStringLiteral(BENCH_EDITOR_PATH));
        QCOMPARE(open.exitCode, 0);
        QVERIFY2(open.out.startsWith("clips=2 video_clips=1 audio_clips=2 thumbs=5 null_thumbs=0 empty_waves=0\n"),
                 qPrintable(open.out));
        QVERIFY2(open.out.contains("\nfirst_thumb_ms median=") && open.out.contains(" peak_rss_kb="),
                 qPrintable(open.out));
        const QStringList rows = QString::fromUtf8(ScratchFiles::read(perClip)).split('\n', Qt::SkipEmptyParts);
        QCOMPARE(rows.size(), 3);
        // The picture clip has its thumbnails and its waveform; the sound clip only a waveform.
        QVERIFY2(QRegularExpression("^0\t.*\t\\d+\t\\d+\t\\d+$").match(rows[1]).hasMatch(), qPrintable(rows[1]));
        QVERIFY2(QRegularExpression("^1\t.*\t-1\t-1\t\\d+$").match(rows[2]).hasMatch(), qPrintable(rows[2]));
    }
};

QTEST_GUILESS_MAIN(TestBenchSmoke)
#include "tst_benchsmoke.moc"
