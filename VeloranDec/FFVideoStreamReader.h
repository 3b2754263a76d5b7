#pragma once

#include "VeloranDec/FFStreamReader.h"
#include "vrfetcher_export.h"

#include <QSharedPointer>
#include <QString>
#include <QVector>

namespace Veloran {

struct CVideoStreamInfo;

// Decoded frames of one video stream with times in milliseconds, measured from the
// first audio sample of the file so that video and audio of one file share a time
// origin (clamped at 0).
class VRFETCHER_EXPORT FFVideoStreamReader : public FFStreamReader
{
    Q_OBJECT
public:
    explicit FFVideoStreamReader(QObject *parent = nullptr);
    ~FFVideoStreamReader() override;

    // Hardware decoding is not available on this platform: always false.
    bool openStream_D3D(const QString &path, const QString &gpuName);

    void resetPtsToMs(const AVFramePtr &frame) override;
    // 40 without a usable frame rate, 0 when not open.
    long long frameIntervalsMs() override;

    // The frames just before ms in decoding order; the count is not used.
    QVector<AVFramePtr> revertSeekAndReadFrame(long long ms, long long count);

    QSharedPointer<CVideoStreamInfo> videoStreamInfo() const;
    bool isAttachedPic();
    QString coderName() const;
    AVBufferRef *hwFramesContext() const;
    void *d3dDevice() const;
    long long startTimeMs() const { return mStartTimeMs; }

protected:
    void ensureStreamInfo(const QString &path) override;
    void restartPrediction(long long ms) override;

private:
    long long mStartTimeMs = 0;
    QSharedPointer<CVideoStreamInfo> mStreamInfo;
    long long mNextPtsMs = 0;
};

} // namespace Veloran
