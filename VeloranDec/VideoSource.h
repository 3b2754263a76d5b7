#pragma once

#include "Common/BasicObject.h"
#include "FFmpegJointPtrs.h"
#include "vrfetcher_export.h"

#include <QSharedPointer>
#include <QString>
#include <QVector>

#include <memory>

extern "C" {
#include <libavutil/pixfmt.h>
}

class QThread;

namespace Veloran {

class FFVideoStreamReader;
class FFVideoAdapter;
class IVideoFrame;

/// Decoded frames of one video stream, converted to one of the pixel formats the
/// caller accepts and, on request, scaled to a given width. Owns its reader and
/// adapter; used from the thread that owns it (opening and reading check this in
/// Debug builds). Failures give false, an empty frame or list, or a neutral value
/// (0, 1.0, an empty name); nothing throws.
class VRFETCHER_EXPORT VideoSource : public BasicObject
{
    Q_OBJECT
public:
    /// A source with no stream open.
    explicit VideoSource(QObject *parent = nullptr);
    /// Deletes the reader and the adapter.
    ~VideoSource() override;

    /// Opens the best video stream of the file. formats: accepted output formats,
    /// [0] for frames without alpha, [1] (optional) for frames with alpha.
    /// outputWidth 0 keeps the source size (a frame already in an accepted format
    /// then passes unconverted), otherwise the height follows the aspect ratio
    /// (turned for 90 and 270 degree rotations). False, with no reader left, when
    /// the file or its video stream does not open.
    bool openVideo(const QString &path, const QVector<AVPixelFormat> &formats, int outputWidth);
    /// Hardware decoding is not available here: always false, leaves no reader.
    bool openVideo_D3D(const QString &path, const QVector<AVPixelFormat> &formats, int outputWidth);

    /// The frame converted to an accepted format and the output width (the converter
    /// is made or remade as needed); the frame itself when no conversion is needed
    /// or no format was given; empty for an empty frame, a failed conversion and
    /// an output side over FFVideoAdapter::kMostOutputSide (logged).
    AVFramePtr adaptFrame(AVFramePtr frame);
    /// The next frame, converted, with its time in milliseconds; it becomes the
    /// current frame. Empty at the end of the stream, on a failed conversion and
    /// when nothing is open.
    QSharedPointer<IVideoFrame> readNextAdaptFrame();
    /// The frame at ms, converted (see FFStreamReader::seekAndReadNextFrame() for
    /// `accurate`); it becomes the current frame. Empty when no frame could be
    /// read or converted and when nothing is open.
    QSharedPointer<IVideoFrame> seekAndReadNextAdaptFrame(long long ms, bool accurate);
    /// The frames starting before ms, converted, nearest first: the first is the
    /// one shown just before ms; at most n of them (see
    /// FFStreamReader::readFramesBefore()). Empty when nothing lies before ms or
    /// nothing is open.
    QVector<QSharedPointer<IVideoFrame>> revertSeekAndReadNextAdaptFrame(long long ms, long long n);
    /// The last frame read or sought; empty before the first.
    QSharedPointer<IVideoFrame> currentAdaptFrame();

    /// The current frame's time in milliseconds; 0 without one.
    long long curFramePts();
    long long frameIntervals();   ///< one frame in ms; 40 without reader
    long long frameIntervalsMs(); ///< one frame in ms; 0 without reader
    /// The stream's duration in milliseconds; 0 when unknown or nothing is open.
    long long durationMs();
    /// The display rotation in degrees (0, 90, 180 or 270); 0 when nothing is open.
    int getRotation();
    /// The sample (pixel) aspect ratio; 1.0 when unknown or nothing is open.
    double getSampleAspectRatio();
    /// True when the stream is a still picture attached to the file (cover art).
    bool isCover();
    /// True for an open stream that is not cover art and has a duration (its own
    /// or the container's).
    bool isVideoAvailable();
    /// The decoder's name; empty when nothing is open.
    QString coderName();

    /// The width frames are scaled to from the next conversion on; 0 keeps the
    /// source size.
    void resetOutputWidth(int width);

private:
    // moveSelfToThread() takes the reader (with demuxer and decoder) and the adapter along.
    QList<BasicObject *> threadParts() const override;
    // Keeps the reader and the width after a successful open, drops the reader otherwise.
    bool openWith(int outputWidth, bool opened);
    // The frame converted and wrapped with the stream description; empty when
    // there is no frame or the conversion gave none.
    QSharedPointer<IVideoFrame> wrap(const AVFramePtr &frame);
    // False when the frame cannot be given at the output width.
    bool ensureAdapter(const AVFramePtr &frame);

    std::unique_ptr<FFVideoStreamReader> mReader;
    std::unique_ptr<FFVideoAdapter> mAdapter;
    QSharedPointer<IVideoFrame> mCurrentFrame;
    QVector<AVPixelFormat> mPixelFormats;
    int mOutputWidth = 0;
};

} // namespace Veloran
