#pragma once

#include "Common/BasicObject.h"
#include "FFmpegJoint.h"
#include "vrfetcher_export.h"

#include <QSharedPointer>
#include <QString>
#include <QVector>

extern "C" {
#include <libavutil/pixfmt.h>
}

class QThread;

namespace Veloran {

class FFVideoStreamReader;
class FFVideoAdapter;
class IVideoFrame;

// Decoded frames of one video stream, converted to one of the pixel formats the
// caller accepts and, on request, scaled to a given width. Owns its reader and
// adapter; used from one thread at a time.
class VRFETCHER_EXPORT VideoSource : public BasicObject
{
    Q_OBJECT
public:
    explicit VideoSource(QObject *parent = nullptr);
    ~VideoSource() override;

    // formats: accepted output formats, [0] for frames without alpha, [1] (optional)
    // for frames with alpha. outputWidth 0 keeps the source size.
    bool openVideo(const QString &path, const QVector<AVPixelFormat> &formats, int outputWidth);
    // Hardware decoding is not available here: always false, leaves no reader.
    bool openVideo_D3D(const QString &path, const QVector<AVPixelFormat> &formats, int outputWidth);

    AVFramePtr adaptFrame(AVFramePtr frame);
    QSharedPointer<IVideoFrame> readNextAdaptFrame();
    QSharedPointer<IVideoFrame> seekAndReadNextAdaptFrame(long long ms, bool accurate);
    // The frames just before ms, nearest first.
    QVector<QSharedPointer<IVideoFrame>> revertSeekAndReadNextAdaptFrame(long long ms, long long n);
    QSharedPointer<IVideoFrame> currentAdaptFrame();

    long long curFramePts();
    long long frameIntervals();   // 40 without reader
    long long frameIntervalsMs(); // 0 without reader
    long long durationMs();
    int getRotation();
    double getSampleAspectRatio();
    bool isCover();
    bool isVideoAvailable();
    QString coderName();

    void resetOutputWidth(int width);
    // Moves the source, its reader (with demuxer and decoder) and its adapter.
    void moveSelfToThread(QThread *thread);

private:
    // Keeps the reader and the width after a successful open, drops the reader otherwise.
    bool openWith(int outputWidth, bool opened);
    // The frame converted and wrapped with the stream description; empty when
    // there is no frame or the conversion gave none.
    QSharedPointer<IVideoFrame> wrap(const AVFramePtr &frame);
    void ensureAdapter(const AVFramePtr &frame);

    FFVideoStreamReader *mReader = nullptr;
    FFVideoAdapter *mAdapter = nullptr;
    QSharedPointer<IVideoFrame> mCurrentFrame;
    QVector<AVPixelFormat> mPixelFormats;
    int mOutputWidth = 0;
};

} // namespace Veloran
