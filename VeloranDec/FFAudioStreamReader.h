#pragma once

#include "VeloranDec/FFStreamReader.h"
#include "vrfetcher_export.h"

#include <QSharedPointer>
#include <QString>
#include <QVector>

namespace Veloran {

struct CAudioStreamInfo;

// Decoded frames of one audio stream with times in milliseconds, measured from the
// file's first audio sample (startTimeMs).
class VRFETCHER_EXPORT FFAudioStreamReader : public FFStreamReader
{
    Q_OBJECT
public:
    explicit FFAudioStreamReader(QObject *parent = nullptr);
    ~FFAudioStreamReader() override;

    void resetPtsToMs(const AVFramePtr &frame) override;
    // One codec frame's length: 21 ms for 1024 samples at 48 kHz; 40 when the
    // codec does not say; 0 when not open.
    long long frameIntervalsMs() override;

    // The frames just before ms in decoding order; flag and count are not used.
    QVector<AVFramePtr> revertSeekAndReadFrame(long long ms, bool flag, long long count);

    QSharedPointer<CAudioStreamInfo> audioStreamInfo() const;
    // Time of the file's first audio sample in ms; -1 before a stream was opened.
    long long startTimeMs() const { return mStartTimeMs; }

protected:
    void ensureStreamInfo(const QString &path) override;
    void restartPrediction(long long ms) override;

private:
    AVRational sampleTimeBase();

    long long mStartTimeMs = -1;
    QSharedPointer<CAudioStreamInfo> mStreamInfo;
    long long mNextPts = 0; // in samples
};

} // namespace Veloran
