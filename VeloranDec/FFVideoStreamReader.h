#pragma once

#include "VeloranDec/FFStreamReader.h"
#include "vrfetcher_export.h"

#include <QSharedPointer>
#include <QString>
#include <QVector>

namespace Veloran {

struct CVideoStreamInfo;

/// Decoded frames of one video stream with times in milliseconds, measured from the
/// first audio sample of the file so that video and audio of one file share a time
/// origin (clamped at 0); a file without audio keeps its own times. Frames without
/// a timestamp get the predicted one (the previous frame's plus one interval).
/// Thread rules and failure results as for FFStreamReader.
class VRFETCHER_EXPORT FFVideoStreamReader : public FFStreamReader
{
    Q_OBJECT
public:
    /// A reader with no stream open.
    explicit FFVideoStreamReader(QObject *parent = nullptr);
    ~FFVideoStreamReader() override;

    /// Hardware decoding is not available on this platform: always false.
    bool openStream_D3D(const QString &path, const QString &gpuName);

    /// Sets pts and best_effort_timestamp to the frame's time in milliseconds from
    /// the file's first audio sample. Does nothing for an empty frame or when not open.
    void resetPtsToMs(const AVFramePtr &frame) override;
    /// One frame at the stream's frame rate: 40 without a usable frame rate, 0 when
    /// not open.
    long long frameIntervalsMs() override;

    /// The frames starting before ms, in order, the last one shown just before ms;
    /// at most `count` of them (see readFramesBefore()).
    QVector<AVFramePtr> revertSeekAndReadFrame(long long ms, long long count);

    /// The open stream's description; null when not open.
    QSharedPointer<CVideoStreamInfo> videoStreamInfo() const;
    /// True when the stream is a still picture attached to the file (cover art).
    bool isAttachedPic();
    /// The decoder's name; empty when not open.
    QString coderName() const;
    /// The decoder's hardware frames context; always null with software decoding.
    AVBufferRef *hwFramesContext() const;
    /// The decoder's hardware device; always null with software decoding.
    void *d3dDevice() const;
    /// Time of the file's first audio sample in ms, the origin of frame times;
    /// -1 for a file without audio, 0 before a stream was opened.
    long long startTimeMs() const { return mStartTimeMs; }

protected:
    /// True when the container's index puts the target's key frame no later than
    /// the frame shown at fromMs: a seek would land there and decode at least as
    /// many frames. Without an index (streamed formats), true for gaps up to a
    /// second. Never for formats without timestamps, whose seeks restart the
    /// predicted times at the target.
    bool readingOnIsCheaper(long long fromMs, long long toMs) override;
    long long streamTimeAtOrBefore(long long ms) override;
    void ensureStreamInfo(const QString &path) override;
    void forgetStreamInfo() override;
    void restartPrediction(long long ms) override;

private:
    long long toStreamTime(long long ms, AVRounding rounding = AV_ROUND_NEAR_INF);

    long long mStartTimeMs = 0;
    QSharedPointer<CVideoStreamInfo> mStreamInfo;
    long long mNextPtsMs = 0;
};

} // namespace Veloran
