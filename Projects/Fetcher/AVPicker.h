#pragma once

#include "vrfetcher_export.h"

#include <QRunnable>
#include <QString>

#include <atomic>

namespace Veloran {

class AVPickerManager;

// A per-file worker of the picker manager. The manager owns it (auto-deletion is
// switched off before every start), runs it on its pool and, when the run reports
// back through recyclePicker, caches it with its opened file or deletes it.
// Once interrupted a picker is never reused, so the flag is never cleared.
class VRFETCHER_EXPORT AVPicker : public QRunnable
{
public:
    AVPicker(const QString &filePath, AVPickerManager *manager);
    ~AVPicker() override;

    AVPicker(const AVPicker &) = delete;
    AVPicker &operator=(const AVPicker &) = delete;

    void requestInterruption();
    bool isInterruptionRequested() const;
    QString filePath() const;

    // The manager prepares a picker (its request, its cached source) on its own
    // thread and the pool runs it on another. The pool's queue orders the two, but
    // through a lock inside Qt that the thread sanitizer cannot see; this explicit
    // release (before the start) and acquire (first thing in run) makes the hand-over
    // visible to it. It costs one atomic store and load per run.
    void handOver();
    void takeOver() const;

protected:
    AVPickerManager *manager() const { return mManager; }

private:
    std::atomic_bool mInterrupted{false};
    std::atomic_int mRuns{0};
    AVPickerManager *mManager = nullptr;
    const QString mFilePath;
};

} // namespace Veloran
