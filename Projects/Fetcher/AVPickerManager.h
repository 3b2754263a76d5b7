#pragma once

#include "Projects/Fetcher/AudioSampleRequest.h"
#include "Projects/Fetcher/PickerCache.h"
#include "Projects/Fetcher/PickerHost.h"
#include "Projects/Fetcher/SchedulerWake.h"
#include "Projects/Fetcher/VideoThumbRequest.h"

#include <QImage>
#include <QList>
#include <QStringList>
#include <QThread>
#include <QThreadPool>

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

namespace Veloran {

class SchedulerClock;

// The process-wide scheduler of the fetch service. Fetchers queue requests here; the
// manager's own thread hands consecutive requests for one file to a per-file picker
// on a pool of about half the logical processors, keeps idle pickers (with their
// opened files) for reuse, and broadcasts every result through its signals.
//
// The manager owns every picker it made: in the running list from the start to the
// end of its run (also while it waits in the pool's queue), in the cache while idle.
// Three mutexes guard the request queues, the running pickers and the picker cache;
// no two of them are ever held at once. They are standard mutexes so that the thread
// sanitizer sees every hand-over between the client, scheduler and pool threads.
class AVPickerManager : public QThread, private PickerHost
{
    Q_OBJECT
public:
    // Created and started on first use, lives until the process ends.
    static AVPickerManager *sharedInstance();

    // A manager of its own, not started: scheduling by `clock` (the steady clock
    // when null), running at most `maxConcurrent` pickers on `pool` (a pool of its
    // own, `maxConcurrent` threads wide, when null). The pool must outlive it.
    AVPickerManager(const SchedulerClock *clock, QThreadPool *pool, int maxConcurrent);
    ~AVPickerManager() override;

    // A single request; a burst of these wakes the scheduler once, 100 ms after the
    // last one.
    void requestVideo(const VideoThumbRequest &request, bool priority);
    // A block of requests, queued together; with `priority` before all waiting ones.
    void requestVideoList(QList<VideoThumbRequest> &&list, bool priority);
    void requestAudio(const AudioSampleRequest &request, bool priority);

    // Empties both queues and takes back the pickers still waiting in the pool;
    // their requests are not answered. Running pickers go on.
    void clearRequests();
    // clearRequests(), interrupts the running pickers and empties the cache. The
    // scheduler keeps serving requests queued afterwards.
    void stop();
    void cleanCache();

    // Called by a picker as the last step of its run, on the pool thread.
    void recyclePicker(AVPicker *picker, bool reusable) override;

    // For a clock that moves other than with time (tests): the scheduler reads it again.
    void clockChanged();

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
    // thread that ends a picker's run (or takes it back unstarted). Empty to remove.
    void setPickerObserver(PickerObserver observer);
    // Files of the idle pickers, oldest first.
    QStringList cachedPickerFiles() const { return cache.files(); }
    int runningPickerCount() const;
    // Nothing queued and nothing running: every answer has been emitted.
    bool isIdle() const;

signals:
    void pickedThumb(Veloran::VideoThumbRequest request, QImage image);
    void pickedFreeze(Veloran::VideoThumbRequest request, bool success);
    void pickedSample(Veloran::AudioSampleRequest request, QList<uint8_t> samples, int count);

protected:
    void run() override;

private:
    static std::unique_ptr<AVPickerManager> createAndStart();

    void answerThumb(const VideoThumbRequest &request, const QImage &image) override;
    void answerFreeze(const VideoThumbRequest &request, bool success) override;
    void answerSample(const AudioSampleRequest &request, const QList<uint8_t> &samples, int piece) override;

    // Adds a request to a queue, at its head with `priority`.
    template <typename Request>
    void queueRequest(QList<Request> &queue, const Request &request, bool priority);
    qint64 nextRoundAt() const;
    void fillFreeSlots();
    bool isAudioRequestLimited();
    void startNextVideoRequest();
    void startNextAudioRequest();
    void startPicker(std::unique_ptr<AVPicker> picker, const QList<qint64> &requestIds);
    // The idle picker of that kind for the file, or a new one.
    template <typename Picker>
    std::unique_ptr<Picker> pickerFor(const QString &filePath);
    // A picker whose run is over (or that never started): cached when it may serve
    // again, destroyed otherwise.
    void release(std::unique_ptr<AVPicker> picker, bool reusable);
    void smartCleanCacheQueue();
    void notify(PickerEvent::Kind kind, const AVPicker &picker, const QList<qint64> &requestIds = {});

    QList<VideoThumbRequest> videoRequests;
    QList<AudioSampleRequest> audioRequests;
    PickerCache cache;
    std::vector<std::unique_ptr<AVPicker>> runningPickers;
    mutable std::mutex runningMutex;
    mutable std::mutex requestMutex;
    const SchedulerClock &clock;
    QThreadPool ownPool;
    QThreadPool &pool;
    SchedulerWake wake;
    // Counts finished recycles; the destructor acquires it after the pool is done, so
    // that the sanitizer sees the pool threads' last touches before the teardown.
    std::atomic_int recycles{0};
    const int mMaxConcurrent;
    bool noVideoStarted = true;
    // Recycles happen on pool threads and the scheduler reads the age on its own
    // (-1: none yet).
    std::atomic<qint64> lastRecycleMs{-1};

    mutable std::mutex observerMutex;
    PickerObserver observer;
};

} // namespace Veloran
