// Asks an installed libVrFetcher for a few thumbnails and the waveform of a file and
// prints what arrives; uses the AES codec and the render geometry on the way.
// Usage: vrfetcher-consumer <media file>
#include <Common/AesCodec.h>
#include <Common/RenderGeometry.h>
#include <Projects/Fetcher/IAVFetcher.h>

#include <QCoreApplication>
#include <QImage>
#include <QTimer>

#include <cstdio>

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    if (argc < 2) {
        std::fprintf(stderr, "usage: %s <media file>\n", argv[0]);
        return 2;
    }
    const QString file = QString::fromLocal8Bit(argv[1]);

    // The utilities: a string through the AES codec and back, and where a 4:3 frame
    // lands on a 16:9 canvas with the bars left for a blurred background.
    const QString sealed = Veloran::AesCodec::encryptString(QStringLiteral("hello"), QStringLiteral("passphrase"));
    const QString opened = Veloran::AesCodec::decryptString(sealed, QStringLiteral("passphrase"));
    std::printf("encrypted string %s decrypts to \"%s\"\n", qPrintable(sealed), qPrintable(opened));
    const QRectF drawn = Veloran::RenderGeometry::fitRect({640, 480}, {1920, 1080}, QStringLiteral("aspect_fit"));
    std::printf("4:3 fitted on 1920x1080 at x=%g width=%g with %d blur bars\n", drawn.x(), drawn.width(),
                int(Veloran::RenderGeometry::blurAreas(drawn, {1920, 1080}).size()));
    bool ok = opened == QLatin1String("hello") && drawn == QRectF(240, 0, 1440, 1080);

    QSharedPointer<Veloran::IAVFetcher> fetcher = Veloran::createAVFetcher();

    const QVector<qint64> times = {0, 1000, 2000};
    int thumbsLeft = times.size();
    int piecesLeft = 4;

    // Results arrive as queued signals on this thread, tagged with the request id.
    QObject::connect(fetcher.data(), &Veloran::IAVFetcher::videoThumb,
                     [&](qint64 id, const QString &, qint64 time, bool, const QImage &image) {
                         std::printf("thumbnail id=%lld time=%lld ms size=%dx%d\n", id, time, image.width(),
                                     image.height());
                         ok = ok && !image.isNull();
                         --thumbsLeft;
                         if (thumbsLeft == 0 && piecesLeft == 0)
                             app.quit();
                     });
    QObject::connect(fetcher.data(), &Veloran::IAVFetcher::audioSample,
                     [&](qint64 id, const QString &, qint64, qint64, int, int, int piece,
                         const QList<uint8_t> &samples) {
                         int peak = 0;
                         for (uint8_t value : samples)
                             peak = qMax(peak, int(value));
                         std::printf("waveform id=%lld piece=%d values=%d peak=%d\n", id, piece,
                                     int(samples.size()), peak);
                         ok = ok && !samples.isEmpty();
                         --piecesLeft;
                         if (thumbsLeft == 0 && piecesLeft == 0)
                             app.quit();
                     });

    const qint64 thumbId = fetcher->fetchVideo(file, times, 160, true, false);
    const qint64 audioId = fetcher->fetchAudio(file, 0, 3000, 300, piecesLeft, false);
    std::printf("requested thumbnails as id %lld and the waveform as id %lld\n", thumbId, audioId);

    QTimer::singleShot(60000, &app, [&] {
        std::fprintf(stderr, "timed out waiting for results\n");
        app.exit(1);
    });
    const int rc = app.exec();
    return rc != 0 ? rc : (ok ? 0 : 1);
}
