#include "AVPickerManager.h"

#include "Projects/Fetcher/AudioPicker.h"
#include "Projects/Fetcher/SchedulingRules.h"
#include "Projects/Fetcher/VideoPicker.h"
#include "VeloranBaseEntry.h"

#include <QMetaObject>
#include <QTimer>

#include <thread>

namespace Veloran {

namespace {
constexpr unsigned long kSchedulerSleepMs = 10000;
constexpr int kWakeDelayMs = 100;
} // namespace

AVPickerManager *AVPickerManager::sharedInstance()
{
    static const std::unique_ptr<AVPickerManager> instance = createAndStart();
    return instance.get();
}

std::unique_ptr<AVPickerManager> AVPickerManager::createAndStart()
{
    std::unique_ptr<AVPickerManager> manager(new AVPickerManager);
    // Requests and peaks cross threads in queued signals.
    qRegisterMetaType<VideoThumbRequest>("Veloran::VideoThumbRequest");
    qRegisterMetaType<AudioSampleRequest>("Veloran::AudioSampleRequest");
    qRegisterMetaType<QList<uint8_t>>("QList<uint8_t>");
    manager->start(QThread::InheritPriority);
    return manager;
}

AVPickerManager::AVPickerManager()
{
    clock.start();
    mMaxConcurrent = maxConcurrentFor(std::thread::hardware_concurrency());
    VR_LOG << "AVPickerManager max concurrent: " << mMaxConcurrent;
    threadPool.setMaxThreadCount(mMaxConcurrent);
    // Made before the thread runs, so the threading library rejects it; the manager
    // thread runs at the priority it inherits from start().
    setPriority(QThread::LowPriority);
}

AVPickerManager::~AVPickerManager()
{
    // Keep waking the scheduler until it has seen the interruption and ended.
    requestInterruption();
    do {
        wakeScheduler(false);
    } while (!wait(20));
    stop();
    threadPool.waitForDone();
    (void)recycles.load(std::memory_order_acquire);
    cleanCache();
    delete wakeTimer;
}

void AVPickerManager::requestVideo(const VideoThumbRequest &request, bool priority)
{
    {
        std::lock_guard<std::mutex> locker(requestMutex);
        if (priority)
            videoRequests.prepend(request);
        else
            videoRequests.append(request);
    }
    wakeDelay();
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
    wakeScheduler();
}

void AVPickerManager::requestAudio(const AudioSampleRequest &request, bool priority)
{
    {
        std::lock_guard<std::mutex> locker(requestMutex);
        if (priority)
            audioRequests.prepend(request);
        else
            audioRequests.append(request);
    }
    wakeScheduler();
}

void AVPickerManager::wakeDelay()
{
    std::call_once(wakeTimerOnce, [this] {
        // No parent: the timer lives in the thread of the first caller.
        wakeTimer = new QTimer;
        wakeTimer->setSingleShot(true);
        connect(wakeTimer, &QTimer::timeout, wakeTimer, [this] { wakeScheduler(); });
    });
    QTimer *timer = wakeTimer;
    const auto restart = [timer] {
        timer->stop();
        timer->start(kWakeDelayMs);
    };
    // A timer may only be driven from its own thread.
    if (timer->thread() == QThread::currentThread())
        restart();
    else
        QMetaObject::invokeMethod(timer, restart, Qt::QueuedConnection);
}

void AVPickerManager::clearRequests()
{
    {
        std::lock_guard<std::mutex> locker(requestMutex);
        videoRequests.clear();
        audioRequests.clear();
    }
    dropUnstartedPickers();
}

void AVPickerManager::stop()
{
    clearRequests();
    {
        // Held so that a picker cannot recycle (and be deleted) under our hands.
        std::lock_guard<std::mutex> locker(runningMutex);
        for (AVPicker *picker : qAsConst(runningPickers))
            picker->requestInterruption();
    }
    cleanCache();
    wakeScheduler(false);
}

void AVPickerManager::wakeScheduler(bool flag)
{
    wakePending.store(true);
    if (flag)
        waitCondition.wakeOne();
    else
        waitCondition.wakeOneFalse();
}

void AVPickerManager::dropUnstartedPickers()
{
    // A picker waiting in the pool's queue never runs once taken out, so it would
    // never recycle: it is removed from the running list and deleted here instead of
    // holding its slot for ever.
    QList<AVPicker *> dropped;
    {
        std::lock_guard<std::mutex> locker(runningMutex);
        for (AVPicker *picker : qAsConst(runningPickers)) {
            if (threadPool.tryTake(picker))
                dropped.append(picker);
        }
        for (AVPicker *picker : qAsConst(dropped))
            runningPickers.removeOne(picker);
    }
    threadPool.clear();
    for (AVPicker *picker : qAsConst(dropped)) {
        notify({PickerEvent::Finished, dynamic_cast<AudioPicker *>(picker) != nullptr, picker->filePath(), {}});
        delete picker;
    }
    if (!dropped.isEmpty())
        wakeScheduler();
}

void AVPickerManager::cleanCache()
{
    QList<AVPicker *> idle;
    {
        std::lock_guard<std::mutex> locker(cacheMutex);
        idle.swap(cachedPickers);
    }
    qDeleteAll(idle);
}

void AVPickerManager::run()
{
    if (isInterruptionRequested())
        return;
    for (;;) {
        if (!wakePending.exchange(false)) {
            waitCondition.wait(kSchedulerSleepMs);
            wakePending.store(false);
        }
        fillFreeSlots();
        smartCleanCacheQueue();
        if (isInterruptionRequested())
            return;
    }
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
        switch (nextStart(runningCount(), mMaxConcurrent, videoWaiting, audioWaiting,
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

int AVPickerManager::runningCount() const
{
    std::lock_guard<std::mutex> locker(runningMutex);
    return runningPickers.size();
}

bool AVPickerManager::isAudioRequestLimited()
{
    // Until the first thumbnails have been asked for, one audio scan at a time.
    if (!noVideoStarted)
        return false;
    std::lock_guard<std::mutex> locker(runningMutex);
    for (AVPicker *picker : qAsConst(runningPickers)) {
        if (dynamic_cast<AudioPicker *>(picker))
            return true;
    }
    return false;
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
    VideoPicker *picker = getVideoPicker(batch.first().filePath);
    picker->setRequest(std::move(batch));
    startPicker(picker, false, ids);
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
    AudioPicker *picker = getAudioPicker(request.sourcePath);
    picker->setRequest(request);
    startPicker(picker, true, {request.id});
}

void AVPickerManager::startPicker(AVPicker *picker, bool audio, const QList<qint64> &requestIds)
{
    picker->setAutoDelete(false);
    picker->handOver();
    notify({PickerEvent::Started, audio, picker->filePath(), requestIds});
    std::lock_guard<std::mutex> locker(runningMutex);
    runningPickers.append(picker);
    threadPool.start(picker, 0);
}

template <typename Kind>
Kind *AVPickerManager::takeCachedPicker(const QString &filePath)
{
    std::lock_guard<std::mutex> locker(cacheMutex);
    for (int i = 0; i < cachedPickers.size(); ++i) {
        Kind *picker = dynamic_cast<Kind *>(cachedPickers.at(i));
        if (picker && picker->filePath() == filePath) {
            cachedPickers.removeAt(i);
            return picker;
        }
    }
    return nullptr;
}

VideoPicker *AVPickerManager::getVideoPicker(const QString &filePath)
{
    if (VideoPicker *picker = takeCachedPicker<VideoPicker>(filePath))
        return picker;
    return new VideoPicker(filePath, this);
}

AudioPicker *AVPickerManager::getAudioPicker(const QString &filePath)
{
    if (AudioPicker *picker = takeCachedPicker<AudioPicker>(filePath))
        return picker;
    return new AudioPicker(filePath, this);
}

void AVPickerManager::recyclePicker(AVPicker *picker, bool reusable)
{
    notify({PickerEvent::Finished, dynamic_cast<AudioPicker *>(picker) != nullptr, picker->filePath(), {}});
    {
        std::lock_guard<std::mutex> locker(runningMutex);
        runningPickers.removeOne(picker);
    }
    if (!picker->isInterruptionRequested() && reusable) {
        std::lock_guard<std::mutex> locker(cacheMutex);
        cachedPickers.append(picker);
    } else {
        delete picker;
    }
    lastRecycleMs.store(clock.elapsed());
    wakeScheduler();
    recycles.fetch_add(1, std::memory_order_release);
}

void AVPickerManager::smartCleanCacheQueue()
{
    const qint64 last = lastRecycleMs.load();
    const qint64 sinceRecycle = last < 0 ? -1 : clock.elapsed() - last;
    QList<AVPicker *> evicted;
    {
        std::lock_guard<std::mutex> locker(cacheMutex);
        const int n = pickersToEvict(cachedPickers.size(), sinceRecycle);
        evicted = cachedPickers.mid(0, n);
        cachedPickers.erase(cachedPickers.begin(), cachedPickers.begin() + n);
    }
    qDeleteAll(evicted);
}

QStringList AVPickerManager::cachedPickerFiles() const
{
    QStringList files;
    std::lock_guard<std::mutex> locker(cacheMutex);
    for (AVPicker *picker : cachedPickers)
        files.append(picker->filePath());
    return files;
}

void AVPickerManager::setPickerObserver(PickerObserver newObserver)
{
    std::lock_guard<std::mutex> locker(observerMutex);
    observer = std::move(newObserver);
}

void AVPickerManager::notify(const PickerEvent &event)
{
    PickerObserver current;
    {
        std::lock_guard<std::mutex> locker(observerMutex);
        current = observer;
    }
    if (current)
        current(event);
}

} // namespace Veloran
