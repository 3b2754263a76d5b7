#pragma once

#include "Projects/Fetcher/AVPickerManager.h"
#include "VeloranBaseEntry.h"

#include <memory>
#include <mutex>

// Records, while alive, the picker starts the manager reports (file and request ids).
class PickerLog
{
public:
    using Event = Veloran::AVPickerManager::PickerEvent;
    struct Start
    {
        QString file;
        QList<qint64> ids;
    };

    explicit PickerLog(Veloran::AVPickerManager *manager)
        : mManager(manager)
    {
        std::shared_ptr<State> state = mState;
        mManager->setPickerObserver([state](const Event &event) {
            std::lock_guard<std::mutex> locker(state->mutex);
            if (event.kind == Event::Started)
                state->starts.append(deepCopy({event.filePath, event.requestIds}));
        });
    }
    ~PickerLog() { mManager->setPickerObserver({}); }

    QList<Start> starts() const
    {
        std::lock_guard<std::mutex> locker(mState->mutex);
        QList<Start> copy;
        for (const Start &start : mState->starts)
            copy.append(deepCopy(start));
        return copy;
    }
    int startCount() const { return starts().size(); }

private:
    // Shares nothing: a shared copy would be detached by the next event while read.
    static Start deepCopy(const Start &start)
    {
        return {QString(start.file.constData(), start.file.size()), QList<qint64>(start.ids.begin(), start.ids.end())};
    }
    struct State
    {
        std::mutex mutex;
        QList<Start> starts;
    };
    Veloran::AVPickerManager *mManager;
    std::shared_ptr<State> mState = std::make_shared<State>();
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
