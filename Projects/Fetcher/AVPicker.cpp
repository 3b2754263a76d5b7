#include "AVPicker.h"

#include "Common/BasicObject.h"
#include "Projects/Fetcher/PickerHost.h"

#include <QThread>

namespace Veloran {

AVPicker::AVPicker(PickerKind kind, const QString &filePath, PickerHost *host)
    : mKind(kind)
    , mHost(host)
    , mFilePath(filePath)
{
}

AVPicker::~AVPicker() = default;

void AVPicker::requestInterruption()
{
    mInterrupted.exchange(true);
}

bool AVPicker::isInterruptionRequested() const
{
    return mInterrupted.load();
}

QString AVPicker::filePath() const
{
    return mFilePath;
}

void AVPicker::handOver()
{
    mRuns.fetch_add(1, std::memory_order_release);
}

void AVPicker::run()
{
    (void)mRuns.load(std::memory_order_acquire);
    if (answerFromCache()) {
        mHost->recyclePicker(this, true);
        return;
    }
    const bool opened = ensureOpened();
    if (opened) {
        // The next run may happen on another pool thread.
        source()->moveSelfToThread(QThread::currentThread());
        serve();
        source()->moveSelfToThread(nullptr);
    } else {
        // Not kept: the next request for this file tries to open it again.
        answerFailure();
    }
    mHost->recyclePicker(this, opened);
}

} // namespace Veloran
