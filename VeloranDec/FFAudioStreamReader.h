#pragma once

#include "VeloranDec/FFStreamReader.h"
#include "vrfetcher_export.h"

#include <QSharedPointer>
#include <QString>
#include <QVector>

namespace Veloran {

struct CAudioStreamInfo;

/// Decoded frames of one audio stream with times in milliseconds, measured from the
/// file's first audio sample (startTimeMs). Frames without a timestamp get the
/// predicted one (the samples counted since the last timed frame or seek).
/// Thread rules and failure results as for FFStreamReader.
class VRFETCHER_EXPORT FFAudioStreamReader : public FFStreamReader
{
    Q_OBJECT
public:
    /// A reader with no stream open.
    explicit FFAudioStreamReader(QObject *parent = nullptr);
    /// Logs "~FFAudioStreamReader" through qDebug.
    ~FFAudioStreamReader() override;

    /// Sets pts and best_effort_timestamp to the frame's time in milliseconds from
    /// the file's first audio sample. Does nothing for an empty frame or when not open.
    void resetPtsToMs(const AVFramePtr &frame) override;
    /// One codec frame's length: 21 ms for 1024 samples at 48 kHz; 40 when the
    /// codec does not say; 0 when not open.
    long long frameIntervalsMs() override;

    /// The frames starting before ms, in order, the last one covering the time
    /// just before ms; at most `count` of them (see readFramesBefore()). The flag
    /// is not used.
    QVector<AVFramePtr> revertSeekAndReadFrame(long long ms, bool flag, long long count);

    /// The open stream's description; null when not open.
    QSharedPointer<CAudioStreamInfo> audioStreamInfo() const;
    /// Time of the file's first audio sample in ms; -1 before a stream was opened.
    long long startTimeMs() const { return mStartTimeMs; }

protected:
    void ensureStreamInfo(const QString &path) override;
    void forgetStreamInfo() override;
    void restartPrediction(long long ms) override;
    /// The frame covering ms, cut to begin at the sample at ms (its time becomes ms);
    /// null when the frame ends at or before ms.
    AVFramePtr frameAtTarget(const AVFramePtr &frame, long long ms) override;

private:
    AVRational sampleTimeBase();

    long long mStartTimeMs = -1;
    // The first sample's exact time in samples: the origin of the times, without
    // the rounding to milliseconds.
    long long mFirstSample = 0;
    QSharedPointer<CAudioStreamInfo> mStreamInfo;
    long long mNextPts = 0; // in samples
};

} // namespace Veloran
