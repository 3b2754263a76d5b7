// Shows the fetch service as a host uses it: thumbnails across a file, a freeze frame
// and the waveform of the whole file, with progress as the answers arrive.
//
//   vrfetcher-demo [media file] [--out <folder>]
//
// Without a file it reads a short generated sample. Results go to a folder
// "vrfetcher-demo-output" next to the program unless --out says otherwise.
#include "DemoMedia.h"
#include "DemoRun.h"

#include <QCommandLineParser>
#include <QDir>
#include <QGuiApplication>
#include <QTimer>

#include <cstdio>

int main(int argc, char *argv[])
{
    // Pictures are drawn off screen; no display is needed.
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QGuiApplication app(argc, argv);

    QCommandLineParser parser;
    parser.setApplicationDescription("Thumbnails, a freeze frame and the waveform of a media file.");
    parser.addHelpOption();
    parser.addPositionalArgument("file", "media file (default: a generated sample)");
    QCommandLineOption outOption("out", "folder for the pictures", "folder",
                                 QDir(QCoreApplication::applicationDirPath()).filePath("vrfetcher-demo-output"));
    parser.addOption(outOption);
    parser.process(app);

    DemoRun::Options options;
    options.file = parser.positionalArguments().value(0);
    if (options.file.isEmpty())
        options.file = DemoMedia::defaultSample();
    if (options.file.isEmpty()) {
        std::fprintf(stderr, "no media file given and the sample could not be made (is ffmpeg installed?)\n");
        return 2;
    }
    options.durationMs = DemoMedia::durationMs(options.file);
    if (options.durationMs <= 0) {
        std::fprintf(stderr, "%s cannot be read as media\n", qPrintable(options.file));
        return 2;
    }
    options.outDir = parser.value(outOption);
    if (!QDir().mkpath(options.outDir)) {
        std::fprintf(stderr, "cannot make the folder %s\n", qPrintable(options.outDir));
        return 2;
    }

    DemoRun run(options);
    QObject::connect(&run, &DemoRun::finished, &app, [&](bool ok) { app.exit(ok ? 0 : 1); });
    QTimer::singleShot(0, &run, &DemoRun::start);
    QTimer::singleShot(180000, &app, [&] {
        std::fprintf(stderr, "timed out waiting for the answers\n");
        app.exit(1);
    });
    return app.exec();
}
