#include "AVPickerManager.h"

#include "Projects/Fetcher/AudioPicker.h"
#include "Projects/Fetcher/SchedulerClock.h"
#include "Projects/Fetcher/SchedulingRules.h"
#include "Projects/Fetcher/VideoPicker.h"
#include "VeloranBaseEntry.h"

#include <algorithm>
#include <thread>

namespace Veloran {

namespace {
constexpr qint64 kSchedulerSleepMs = 10000;
constexpr qint64 kWakeDelayMs = 100;
} // namespace

AVPickerManager *AVPickerManager::sharedInstance()
{
    static const std::unique_ptr<AVPickerManager> instance = createAndStart();
    return instance.get();
}

std::unique_ptr<AVPickerManager> AVPickerManager::createAndStart()
{
    auto manager = std::make_unique<AVPickerManager>(nullptr, nullptr,
                                                     maxConcurrentFor(std::thread::hardware_concurrency()));
    // Requests and peaks cross threads in queued signals.
    qRegisterMetaType<VideoThumbRequest>("Veloran::VideoThumbRequest");
    qRegisterMetaType<AudioSampleRequest>("Veloran::AudioSampleRequest");
    qRegisterMetaType<QList<uint8_t>>("QList<uint8_t>");
    manager->start(QThread::InheritPriority);
    return manager;
}

AVPickerManager::AVPickerManager(const SchedulerClock *clock, QThreadPool *pool, int maxConcurrent)
    : clock(clock ? *clock : SchedulerClock::steady())
    , pool(pool ? *pool : ownPool)
    , wake(this->clock)
    , mMaxConcurrent(maxConcurrent)
{
    VR_LOG << "AVPickerManager max concurrent: " << mMaxConcurrent;
    ownPool.setMaxThreadCount(mMaxConcurrent);
    // Made before the thread runs, so the threading library rejects it; the manager
    // thread runs at the priority it inherits from start().
    setPriority(QThread::LowPriority);
}

AVPickerManager::~AVPickerManager()
{
    requestInterruption();
    wake.wake();
    wait();
    stop();
    pool.waitForDone();
    (void)recycles.load(std::memory_order_acquire);
    cleanCache();
}

template <typename Request>
void AVPickerManager::queueRequest(QList<Request> &queue, const Request &request, bool priority)
{
    std::lock_guard<std::mutex> locker(requestMutex);
    if (priority)
        queue.prepend(request);
    else
        queue.append(request);
}

void AVPickerManager::requestVideo(const VideoThumbRequest &request, bool priority)
{
    queueRequest(videoRequests, request, priority);
    wake.wakeAfter(kWakeDelayMs);
}

void AVPickerManager::requestVideoList(QList<VideoThumbRequest> &&list, bool priority)
{
    {
        std::lock_guard<std::mutex> locker(requestMutex);
        if (priority) {
            list.append(videoRequests);
            videoRequests.swap(list);
        } else {
            videoRequests.append(list);
        }
    }
    wake.wake();
}

void AVPickerManager::requestAudio(const AudioSampleRequest &request, bool priority)
{
    queueRequest(audioRequests, request, priority);
    wake.wake();
}

void AVPickerManager::clearRequests()
{
    {
        std::lock_guard<std::mutex> locker(requestMutex);
        videoRequests.clear();
        audioRequests.clear();
    }
    // Every runnable of the pool is a running picker: each one still queued there is
    // taken back under the same lock that starts them, so none can slip in between.
    // (QThreadPool::clear() would drop pickers started meanwhile without a trace.)
    std::vector<std::unique_ptr<AVPicker>> unstarted;
    {
        std::lock_guard<std::mutex> locker(runningMutex);
        const auto kept = std::stable_partition(runningPickers.begin(), runningPickers.end(),
                                                [this](const std::unique_ptr<AVPicker> &picker) {
                                                    return !pool.tryTake(picker.get());
                                                });
        std::move(kept, runningPickers.end(), std::back_inserter(unstarted));
        runningPickers.erase(kept, runningPickers.end());
    }
    // Reported first thing after the take-back: an observer sees the pool as the
    // scheduler may already have refilled it.
    for (std::unique_ptr<AVPicker> &picker : unstarted) {
        notify(PickerEvent::Finished, *picker);
        release(std::move(picker), true);
    }
    if (!unstarted.empty())
        wake.wake();
}

void AVPickerManager::stop()
{
    clearRequests();
    {
        // Held so that a picker cannot recycle (and be deleted) under our hands.
        std::lock_guard<std::mutex> locker(runningMutex);
        for (const std::unique_ptr<AVPicker> &picker : runningPickers)
            picker->requestInterruption();
    }
    cleanCache();
    wake.wake();
}

void AVPickerManager::cleanCache()
{
    cache.clear();
}

void AVPickerManager::clockChanged()
{
    wake.recheck();
}

void AVPickerManager::run()
{
    while (!isInterruptionRequested()) {
        wake.sleepUntil(nextRoundAt());
        fillFreeSlots();
        smartCleanCacheQueue();
    }
}

qint64 AVPickerManager::nextRoundAt() const
{
    const qint64 idleEnd = clock.nowMs() + kSchedulerSleepMs;
    const qint64 last = lastRecycleMs.load();
    // Idle pickers are dropped as soon as they have been kept long enough.
    if (last >= 0 && cache.size() > 0)
        return std::min(idleEnd, last + kCacheKeepMs + 1);
    return idleEnd;
}

void AVPickerManager::fillFreeSlots()
{
    for (;;) {
        bool videoWaiting = false;
        bool audioWaiting = false;
        {
            std::lock_guard<std::mutex> locker(requestMutex);
            videoWaiting = !videoRequests.isEmpty();
            audioWaiting = !audioRequests.isEmpty();
        }
        switch (nextStart(runningPickerCount(), mMaxConcurrent, videoWaiting, audioWaiting,
                          [this] { return isAudioRequestLimited(); })) {
        case NextStart::None:
            return;
        case NextStart::Video:
            startNextVideoRequest();
            noVideoStarted = false;
            break;
        case NextStart::Audio:
            startNextAudioRequest();
            break;
        }
    }
}

int AVPickerManager::runningPickerCount() const
{
    std::lock_guard<std::mutex> locker(runningMutex);
    return int(runningPickers.size());
}

bool AVPickerManager::isIdle() const
{
    {
        std::lock_guard<std::mutex> locker(requestMutex);
        if (!videoRequests.isEmpty() || !audioRequests.isEmpty())
            return false;
    }
    return runningPickerCount() == 0;
}

bool AVPickerManager::isAudioRequestLimited()
{
    // Until the first thumbnails have been asked for, one audio scan at a time.
    if (!noVideoStarted)
        return false;
    std::lock_guard<std::mutex> locker(runningMutex);
    return std::any_of(runningPickers.begin(), runningPickers.end(), [](const std::unique_ptr<AVPicker> &picker) {
        return picker->kind() == PickerKind::Audio;
    });
}

void AVPickerManager::startNextVideoRequest()
{
    QList<VideoThumbRequest> batch;
    {
        std::lock_guard<std::mutex> locker(requestMutex);
        batch = takeVideoBatch(videoRequests);
    }
    if (batch.isEmpty())
        return;
    QList<qint64> ids;
    for (const VideoThumbRequest &request : qAsConst(batch))
        ids.append(request.id);
    std::unique_ptr<VideoPicker> picker = pickerFor<VideoPicker>(batch.first().filePath);
    picker->setRequest(std::move(batch));
    startPicker(std::move(picker), ids);
}

void AVPickerManager::startNextAudioRequest()
{
    AudioSampleRequest request;
    {
        std::lock_guard<std::mutex> locker(requestMutex);
        if (audioRequests.isEmpty())
            return;
        request = audioRequests.takeFirst();
    }
    std::unique_ptr<AudioPicker> picker = pickerFor<AudioPicker>(request.sourcePath);
    picker->setRequest(request);
    startPicker(std::move(picker), {request.id});
}

template <typename Picker>
std::unique_ptr<Picker> AVPickerManager::pickerFor(const QString &filePath)
{
    constexpr PickerKind kind = std::is_same<Picker, AudioPicker>::value ? PickerKind::Audio : PickerKind::Video;
    if (std::unique_ptr<AVPicker> idle = cache.take(kind, filePath))
        return std::unique_ptr<Picker>(static_cast<Picker *>(idle.release()));
    return std::make_unique<Picker>(filePath, static_cast<PickerHost *>(this));
}

void AVPickerManager::startPicker(std::unique_ptr<AVPicker> picker, const QList<qint64> &requestIds)
{
    AVPicker *runnable = picker.get();
    runnable->setAutoDelete(false);
    runnable->handOver();
    notify(PickerEvent::Started, *runnable, requestIds);
    std::lock_guard<std::mutex> locker(runningMutex);
    runningPickers.push_back(std::move(picker));
    pool.start(runnable, 0);
}

void AVPickerManager::recyclePicker(AVPicker *picker, bool reusable)
{
    notify(PickerEvent::Finished, *picker);
    std::unique_ptr<AVPicker> owned;
    {
        std::lock_guard<std::mutex> locker(runningMutex);
        const auto found = std::find_if(runningPickers.begin(), runningPickers.end(),
                                        [picker](const std::unique_ptr<AVPicker> &p) { return p.get() == picker; });
        if (found != runningPickers.end()) {
            owned = std::move(*found);
            runningPickers.erase(found);
        }
    }
    release(std::move(owned), reusable);
    lastRecycleMs.store(clock.nowMs());
    wake.wake();
    recycles.fetch_add(1, std::memory_order_release);
}

void AVPickerManager::release(std::unique_ptr<AVPicker> picker, bool reusable)
{
    if (picker && reusable && !picker->isInterruptionRequested())
        cache.put(std::move(picker));
}

void AVPickerManager::smartCleanCacheQueue()
{
    const qint64 last = lastRecycleMs.load();
    cache.dropOldest(pickersToEvict(cache.size(), last < 0 ? -1 : clock.nowMs() - last));
}

void AVPickerManager::answerThumb(const VideoThumbRequest &request, const QImage &image)
{
    emit pickedThumb(request, image);
}

void AVPickerManager::answerFreeze(const VideoThumbRequest &request, bool success)
{
    emit pickedFreeze(request, success);
}

void AVPickerManager::answerSample(const AudioSampleRequest &request, const QList<uint8_t> &samples, int piece)
{
    emit pickedSample(request, samples, piece);
}

void AVPickerManager::setPickerObserver(PickerObserver newObserver)
{
    std::lock_guard<std::mutex> locker(observerMutex);
    observer = std::move(newObserver);
}

void AVPickerManager::notify(PickerEvent::Kind kind, const AVPicker &picker, const QList<qint64> &requestIds)
{
    PickerObserver current;
    {
        std::lock_guard<std::mutex> locker(observerMutex);
        current = observer;
    }
    if (current)
        current({kind, picker.kind() == PickerKind::Audio, picker.filePath(), requestIds});
}

} // namespace Veloran
