// bench_fetch: runs one job through the library's public fetcher and exits.
//   bench_fetch thumbs FILE --times MS,MS,... [--width 160] [--fast] [--out DIR] [--batches N]
//   bench_fetch wave FILE --length MS [--begin MS] --values N [--pieces P] [--out FILE]
//   bench_fetch match REFDIR THUMBDIR --count N [--tolerance MAD] [--verbose]
//   bench_fetch convert FILE [--width 160] [--frames 20] [--rounds 10]
// Prints one result line per batch (or job) on stdout; exit code 0 when every answer came.

#include "ConvertJob.h"
#include "FrameMatch.h"
#include "ThumbJob.h"
#include "WaveJob.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QTimer>

#include <memory>

namespace {

QVector<qint64> parseTimes(const QString &text, bool &ok)
{
    QVector<qint64> times;
    ok = true;
    for (const QString &part : text.split(QLatin1Char(','), Qt::SkipEmptyParts)) {
        bool partOk = false;
        times.append(part.trimmed().toLongLong(&partOk));
        ok = ok && partOk;
    }
    ok = ok && !times.isEmpty();
    return times;
}

int usage(QTextStream &err)
{
    err << "usage: bench_fetch thumbs FILE --times MS,... [--width W] [--fast] [--out DIR] [--batches N]\n"
           "       bench_fetch wave FILE --length MS [--begin MS] --values N [--pieces P] [--out FILE]\n"
           "       bench_fetch match REFDIR THUMBDIR --count N [--tolerance MAD] [--verbose]\n"
           "       bench_fetch convert FILE [--width W] [--frames N] [--rounds R]"
        << Qt::endl;
    return 2;
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    QTextStream out(stdout);
    QTextStream err(stderr);

    QCommandLineParser parser;
    parser.addPositionalArgument("mode", "thumbs, wave or match");
    parser.addOptions({{"times", "thumbnail times in ms, comma separated", "list"},
                       {"width", "thumbnail width", "pixels", "160"},
                       {"fast", "nearest keyframe instead of the exact frame"},
                       {"out", "output folder (thumbs) or file (wave)", "path"},
                       {"batches", "repeat the thumbnail batch", "n", "1"},
                       {"begin", "waveform start", "ms", "0"},
                       {"length", "waveform length", "ms"},
                       {"values", "number of peak values", "n"},
                       {"pieces", "number of pieces", "n", "1"},
                       {"count", "number of targets to match", "n"},
                       {"tolerance", "mean absolute difference allowed", "mad", "2.5"},
                       {"verbose", "one line per matched target"},
                       {"frames", "decoded frames to convert", "n", "20"},
                       {"rounds", "conversions of each frame", "n", "10"},
                       {"timeout", "give up after", "s", "3600"}});
    parser.process(app);
    const QStringList args = parser.positionalArguments();
    const QString mode = args.value(0);

    if (mode == QLatin1String("match")) {
        if (args.size() != 3 || !parser.isSet("count"))
            return usage(err);
        FrameMatchOptions options;
        options.referenceDir = args[1];
        options.thumbDir = args[2];
        options.count = parser.value("count").toInt();
        options.tolerance = parser.value("tolerance").toDouble();
        options.verbose = parser.isSet("verbose");
        matchFrames(options, out);
        return 0;
    }

    if (mode == QLatin1String("convert")) {
        if (args.size() != 2)
            return usage(err);
        ConvertJobOptions options;
        options.file = args[1];
        options.width = parser.value("width").toInt();
        options.frames = parser.value("frames").toInt();
        options.rounds = parser.value("rounds").toInt();
        return runConvertJob(options, out) ? 0 : 1;
    }

    std::unique_ptr<QObject> job;
    if (mode == QLatin1String("thumbs") && args.size() == 2) {
        ThumbJobOptions options;
        options.file = args[1];
        bool ok = false;
        options.times = parseTimes(parser.value("times"), ok);
        options.width = parser.value("width").toInt();
        options.exact = !parser.isSet("fast");
        options.outDir = parser.value("out");
        options.batches = std::max(1, parser.value("batches").toInt());
        if (!ok || options.width < 1)
            return usage(err);
        auto thumbs = std::make_unique<ThumbJob>(options, out);
        QObject::connect(thumbs.get(), &ThumbJob::finished, &app, &QCoreApplication::exit);
        QTimer::singleShot(0, thumbs.get(), &ThumbJob::start);
        job = std::move(thumbs);
    } else if (mode == QLatin1String("wave") && args.size() == 2) {
        WaveJobOptions options;
        options.file = args[1];
        options.beginMs = parser.value("begin").toLongLong();
        options.lengthMs = parser.value("length").toLongLong();
        options.values = parser.value("values").toInt();
        options.pieces = parser.value("pieces").toInt();
        options.outFile = parser.value("out");
        if (options.lengthMs < 1 || options.values < 1 || options.pieces < 1)
            return usage(err);
        auto wave = std::make_unique<WaveJob>(options, out);
        QObject::connect(wave.get(), &WaveJob::finished, &app, &QCoreApplication::exit);
        QTimer::singleShot(0, wave.get(), &WaveJob::start);
        job = std::move(wave);
    } else {
        return usage(err);
    }

    QTimer::singleShot(parser.value("timeout").toInt() * 1000, &app, [&] {
        err << "bench_fetch: timed out" << Qt::endl;
        QCoreApplication::exit(3);
    });
    return app.exec();
}
