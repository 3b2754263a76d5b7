#pragma once

#include "Common/WaitCondition.h"
#include "Projects/Fetcher/AudioSampleRequest.h"
#include "Projects/Fetcher/VideoThumbRequest.h"
#include "vrfetcher_export.h"

#include <QElapsedTimer>
#include <QImage>
#include <QList>
#include <QStringList>
#include <QThread>
#include <QThreadPool>

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>

class QTimer;

namespace Veloran {

class AVPicker;
class AudioPicker;
class VideoPicker;

// The process-wide scheduler of the fetch service. Fetchers queue requests here; the
// manager's own thread hands consecutive requests for one file to a per-file picker
// on a private pool of about half the logical processors, keeps idle pickers (with
// their opened files) for reuse, and broadcasts every result through its signals.
//
// Three mutexes guard the request queues, the running pickers and the picker cache;
// no two of them are ever held at once. They are standard mutexes so that the thread
// sanitizer sees every hand-over between the client, scheduler and pool threads.
class VRFETCHER_EXPORT AVPickerManager : public QThread
{
    Q_OBJECT
public:
    // Created and started on first use, lives until the process ends.
    static AVPickerManager *sharedInstance();
    ~AVPickerManager() override;

    // A single request; a burst of these wakes the scheduler once, 100 ms after the
    // last one (the calling thread must run an event loop for that).
    void requestVideo(const VideoThumbRequest &request, bool priority);
    // A block of requests, queued together; with `priority` before all waiting ones.
    void requestVideoList(QList<VideoThumbRequest> &&list, bool priority);
    void requestAudio(const AudioSampleRequest &request, bool priority);

    // Empties both queues and drops pickers that were started but have not begun.
    void clearRequests();
    // clearRequests(), interrupts the running pickers and empties the cache. The
    // scheduler keeps serving requests queued afterwards.
    void stop();
    void cleanCache();

    // Called by a picker as the last step of its run, on the pool thread.
    void recyclePicker(AVPicker *picker, bool reusable);

    // Manager thread: the cached picker for the file, or a new one.
    VideoPicker *getVideoPicker(const QString &filePath);
    AudioPicker *getAudioPicker(const QString &filePath);

    int maxConcurrent() const { return mMaxConcurrent; }

    // Diagnostics for hosts and tests.
    struct PickerEvent
    {
        enum Kind { Started, Finished };
        Kind kind = Started;
        bool audio = false;
        QString filePath;
        QList<qint64> requestIds; // the run's requests (Started only)
    };
    using PickerObserver = std::function<void(const PickerEvent &)>;
    // Called on the manager thread as each picker is handed to the pool, and on the
    // thread that ends a picker's run (or drops it unstarted). Empty to remove.
    void setPickerObserver(PickerObserver observer);
    // Files of the idle pickers, oldest first.
    QStringList cachedPickerFiles() const;
    int runningPickerCount() const { return runningCount(); }

signals:
    void pickedThumb(Veloran::VideoThumbRequest request, QImage image);
    void pickedFreeze(Veloran::VideoThumbRequest request, bool success);
    void pickedSample(Veloran::AudioSampleRequest request, QList<uint8_t> samples, int count);

protected:
    void run() override;

private:
    AVPickerManager();
    static std::unique_ptr<AVPickerManager> createAndStart();

    void wakeDelay();
    void wakeScheduler(bool flag = true);
    void fillFreeSlots();
    bool isAudioRequestLimited();
    void startNextVideoRequest();
    void startNextAudioRequest();
    void startPicker(AVPicker *picker, bool audio, const QList<qint64> &requestIds);
    void dropUnstartedPickers();
    void smartCleanCacheQueue();
    int runningCount() const;
    void notify(const PickerEvent &event);

    template <typename Kind>
    Kind *takeCachedPicker(const QString &filePath);

    QList<VideoThumbRequest> videoRequests;
    QList<AudioSampleRequest> audioRequests;
    QList<AVPicker *> cachedPickers;
    QList<AVPicker *> runningPickers;
    mutable std::mutex cacheMutex;
    mutable std::mutex runningMutex;
    mutable std::mutex requestMutex;
    QThreadPool threadPool;
    WaitCondition waitCondition{true};
    // Set by every wake. The wait condition forgets a wake that comes while the
    // scheduler is busy (or not yet waiting at all, right after start); this flag
    // remembers it, so that the scheduler goes round again instead of sleeping.
    std::atomic_bool wakePending{false};
    // Counts finished recycles; the destructor acquires it after the pool is done, so
    // that the sanitizer sees the pool threads' last touches before the teardown.
    std::atomic_int recycles{0};
    int mMaxConcurrent = 0;
    bool noVideoStarted = true;
    QTimer *wakeTimer = nullptr;
    std::once_flag wakeTimerOnce;
    // Recycles happen on pool threads and the scheduler reads the age on its own, so
    // the last recycle is kept as an atomic offset on a clock started at construction
    // (-1: none yet).
    QElapsedTimer clock;
    std::atomic<qint64> lastRecycleMs{-1};

    mutable std::mutex observerMutex;
    PickerObserver observer;
};

} // namespace Veloran
