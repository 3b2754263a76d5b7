#pragma once

#include "Projects/Fetcher/AVPickerManager.h"
#include "VeloranBaseEntry.h"

#include <mutex>

#include <memory>
#include <vector>

// Records, while alive, the picker starts and ends the manager reports, and how
// many pickers of each kind ran at the same time at most.
class PickerLog
{
public:
    using Event = Veloran::AVPickerManager::PickerEvent;

    explicit PickerLog(Veloran::AVPickerManager *manager)
        : mManager(manager)
        , mState(std::make_shared<State>())
    {
        std::shared_ptr<State> state = mState;
        mManager->setPickerObserver([state](const Event &event) { state->add(event); });
    }
    ~PickerLog() { mManager->setPickerObserver({}); }

    QList<Event> starts() const
    {
        std::lock_guard<std::mutex> locker(mState->mutex);
        // Deep copies: a shared list handed out here would be detached by the next
        // event while this copy is read.
        QList<Event> copy;
        for (const Event &event : mState->starts)
            copy.append({event.kind, event.audio, QString(event.filePath.constData(), event.filePath.size()),
                         QList<qint64>(event.requestIds.begin(), event.requestIds.end())});
        return copy;
    }
    int startCount() const
    {
        std::lock_guard<std::mutex> locker(mState->mutex);
        return int(mState->starts.size());
    }
    int finishCount() const
    {
        std::lock_guard<std::mutex> locker(mState->mutex);
        return mState->finishes;
    }
    int maxAudioRunning() const
    {
        std::lock_guard<std::mutex> locker(mState->mutex);
        return mState->maxAudio;
    }
    int maxRunning() const
    {
        std::lock_guard<std::mutex> locker(mState->mutex);
        return mState->maxRunning;
    }

private:
    struct State
    {
        void add(const Event &event)
        {
            std::lock_guard<std::mutex> locker(mutex);
            const int delta = event.kind == Event::Started ? 1 : -1;
            (event.audio ? audio : video) += delta;
            if (event.kind == Event::Started)
                starts.push_back(event);
            else
                ++finishes;
            maxAudio = qMax(maxAudio, audio);
            maxRunning = qMax(maxRunning, audio + video);
        }

        std::mutex mutex;
        std::vector<Event> starts;
        int finishes = 0;
        int audio = 0;
        int video = 0;
        int maxAudio = 0;
        int maxRunning = 0;
    };

    Veloran::AVPickerManager *mManager;
    std::shared_ptr<State> mState;
};

// Holds every slot of the process-wide work gate, so that video pickers wait at it
// before their first frame, until released.
class GateHold
{
public:
    GateHold()
    {
        while (Veloran::VeloranBaseEntry()->workGate()->tryAcquire(0))
            ++mHeld;
    }
    ~GateHold() { release(); }
    void release()
    {
        for (; mHeld > 0; --mHeld)
            Veloran::VeloranBaseEntry()->workGate()->release();
    }

private:
    int mHeld = 0;
};
