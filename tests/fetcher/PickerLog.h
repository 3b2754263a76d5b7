#pragma once

#include "Projects/Fetcher/AVPickerManager.h"
#include "VeloranBaseEntry.h"

#include <QMutex>
#include <QMutexLocker>

#include <memory>

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
        QMutexLocker locker(&mState->mutex);
        return mState->starts;
    }
    int startCount() const { return starts().size(); }
    int finishCount() const
    {
        QMutexLocker locker(&mState->mutex);
        return mState->finishes;
    }
    int maxAudioRunning() const
    {
        QMutexLocker locker(&mState->mutex);
        return mState->maxAudio;
    }
    int maxRunning() const
    {
        QMutexLocker locker(&mState->mutex);
        return mState->maxRunning;
    }

private:
    struct State
    {
        void add(const Event &event)
        {
            QMutexLocker locker(&mutex);
            const int delta = event.kind == Event::Started ? 1 : -1;
            (event.audio ? audio : video) += delta;
            if (event.kind == Event::Started)
                starts.append(event);
            else
                ++finishes;
            maxAudio = qMax(maxAudio, audio);
            maxRunning = qMax(maxRunning, audio + video);
        }

        QMutex mutex;
        QList<Event> starts;
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
