#pragma once

#include "Projects/Fetcher/AudioSampleRequest.h"
#include "Projects/Fetcher/IAVFetcher.h"
#include "Projects/Fetcher/VideoThumbRequest.h"
#include "vrfetcher_export.h"

namespace Veloran {

// Hands requests to the shared picker manager and re-emits the manager's results
// under the fetcher's own signals. Holds no state of its own.
class VRFETCHER_EXPORT AVFetcher : public IAVFetcher
{
    Q_OBJECT
public:
    AVFetcher();

    qint64 fetchFreezeFrame(const QString &filePath, const QString &savePath, qint64 time, bool seekFlag,
                            bool priority) override;
    qint64 fetchVideo(const QString &filePath, const QVector<qint64> &times, int width, bool seekFlag,
                      bool priority) override;
    qint64 fetchAudio(const QString &filePath, qint64 begin, qint64 length, int sampleCount, int count,
                      bool priority) override;
    void clearFetching() override;
    void stop() override;

private slots:
    void onPickedThumb(Veloran::VideoThumbRequest request, QImage image);
    void onPickedFreeze(Veloran::VideoThumbRequest request, bool success);
    void onPickedSample(Veloran::AudioSampleRequest request, QList<uint8_t> samples, int count);
};

// The next request id of the process, starting at 1. Not thread-safe: fetch calls
// are expected from one thread at a time (the host's main thread).
VRFETCHER_EXPORT qint64 genRequestID();

} // namespace Veloran
