#include "DemoMedia.h"

#include <FFmpegJoint.h>
#include <VeloranDec/AudioSource.h>
#include <VeloranDec/VideoSource.h>

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QProcess>

#include <cstdio>

namespace DemoMedia {

QString defaultSample()
{
    const QString path = QDir(QCoreApplication::applicationDirPath()).absoluteFilePath("vrfetcher-demo-sample.mp4");
    if (QFileInfo(path).size() > 0)
        return path;
    std::printf("making the demo sample %s with ffmpeg ...\n", qPrintable(path));
    const QStringList args{
        "-y", "-nostdin", "-loglevel", "error",
        "-f", "lavfi", "-i", "testsrc2=size=640x360:rate=25:duration=12",
        "-f", "lavfi", "-i", "aevalsrc=exprs=0.8*sin(2*PI*330*t)*abs(sin(PI*t/3))*(0.6+0.4*sin(2*PI*4*t)):s=48000:d=12",
        "-c:v", "libx264", "-preset", "veryfast", "-g", "25", "-pix_fmt", "yuv420p",
        "-c:a", "aac", "-b:a", "128k", "-shortest", path};
    QProcess ffmpeg;
    ffmpeg.setProcessChannelMode(QProcess::ForwardedChannels);
    ffmpeg.start("ffmpeg", args);
    if (!ffmpeg.waitForFinished(120000) || ffmpeg.exitStatus() != QProcess::NormalExit || ffmpeg.exitCode() != 0) {
        QFile::remove(path);
        return QString();
    }
    return path;
}

qint64 durationMs(const QString &file)
{
    Veloran::VideoSource video;
    if (video.openVideo(file, {AV_PIX_FMT_RGB24}, 0) && video.durationMs() > 0)
        return video.durationMs();
    Veloran::AudioSource audio;
    if (audio.open(file, AV_SAMPLE_FMT_U8, 1, -1, 48000))
        return qMax<qint64>(0, audio.durationMs());
    return 0;
}

} // namespace DemoMedia
