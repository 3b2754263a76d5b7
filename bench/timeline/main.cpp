// bench_editor: an editor opening a project, through the library's public fetcher.
//   bench_editor open LIST [--thumbs 5] [--width 160] [--per-clip FILE] [--digest FILE]
//   bench_editor hover FILE --duration MS [--count 30] [--width 160]
//   bench_editor phases LIST [--thumbs 5] [--width 160]
//   bench_editor plan LIST [--thumbs 5]
// Every mode takes --cache-dir DIR: the fetch service keeps its answers there.
// LIST: one clip per line, FILE<TAB>av|v|a<TAB>DURATION_MS (see ClipPlan.h).
// Prints its results as key=value lines on stdout; exit code 0 when every request
// was answered with a picture or peaks, 1 otherwise, 2 for bad arguments.

#include "ClipPlan.h"
#include "HoverJob.h"
#include "OpenJob.h"
#include "PhaseProbe.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QTimer>

#include <memory>

namespace {

int usage(QTextStream &err, const QString &why = QString())
{
    if (!why.isEmpty())
        err << "bench_editor: " << why << '\n';
    err << "usage: bench_editor open LIST [--thumbs N] [--width W] [--per-clip FILE] [--digest FILE]\n"
           "       bench_editor hover FILE --duration MS [--count N] [--width W]\n"
           "       bench_editor phases LIST [--thumbs N] [--width W]\n"
           "       bench_editor plan LIST [--thumbs N]\n"
           "       (open and hover also take --cache-dir DIR)"
        << Qt::endl;
    return 2;
}

// The fetcher every job asks. Options that configure the fetch service itself are
// read here, so that both jobs get them.
QSharedPointer<Veloran::IAVFetcher> makeFetcher(const QCommandLineParser &parser)
{
    Veloran::IAVFetcher::setCacheDirectory(parser.value("cache-dir"));
    return Veloran::createAVFetcher();
}

// Starts the job on the event loop and ends the program with its exit code.
template<typename Job>
int runJob(QCoreApplication &app, std::unique_ptr<Job> job, int timeoutS, QTextStream &err)
{
    QObject::connect(job.get(), &Job::finished, &app, &QCoreApplication::exit);
    QTimer::singleShot(0, job.get(), &Job::start);
    QTimer::singleShot(timeoutS * 1000, &app, [&] {
        err << "bench_editor: timed out" << Qt::endl;
        QCoreApplication::exit(3);
    });
    return app.exec();
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    QTextStream out(stdout);
    QTextStream err(stderr);

    QCommandLineParser parser;
    parser.addPositionalArgument("mode", "open, hover, phases or plan");
    parser.addOptions({{"thumbs", "thumbnails per video clip", "n", "5"},
                       {"width", "thumbnail width", "pixels", "160"},
                       {"per-clip", "write the arrival times of each clip to this file", "file"},
                       {"digest", "write a SHA-256 of every answer to this file", "file"},
                       {"cache-dir", "keep the fetch service's answers in this folder", "dir"},
                       {"duration", "hover: the clip's duration", "ms"},
                       {"count", "hover: requests per kind", "n", "30"},
                       {"timeout", "give up after", "s", "3600"}});
    parser.process(app);
    const QStringList args = parser.positionalArguments();
    const QString mode = args.value(0);
    const int width = parser.value("width").toInt();
    const int timeoutS = parser.value("timeout").toInt();
    if (args.size() != 2 || width < 1)
        return usage(err);

    if (mode == QLatin1String("hover")) {
        HoverOptions options;
        options.file = args[1];
        options.durationMs = parser.value("duration").toLongLong();
        options.count = parser.value("count").toInt();
        options.width = width;
        if (options.durationMs < 1000 || options.count < 1)
            return usage(err, "hover needs --duration of at least 1000 ms and --count of at least 1");
        return runJob(app, std::make_unique<HoverJob>(options, makeFetcher(parser), out), timeoutS, err);
    }

    QString error;
    const QVector<ClipPlan> plans = readClipPlans(args[1], std::max(1, parser.value("thumbs").toInt()), error);
    if (plans.isEmpty())
        return usage(err, error);
    if (mode == QLatin1String("plan")) {
        printClipPlans(plans, out);
        return 0;
    }
    if (mode == QLatin1String("phases"))
        return probePhases(plans, width, out) ? 0 : 1;
    if (mode == QLatin1String("open")) {
        return runJob(app, std::make_unique<OpenJob>(plans, width, makeFetcher(parser), out, parser.value("per-clip"),
                                                   parser.value("digest")),
                      timeoutS, err);
    }
    return usage(err, "unknown mode " + mode);
}
