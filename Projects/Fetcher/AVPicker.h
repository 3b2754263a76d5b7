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

protected:
    AVPickerManager *manager() const { return mManager; }

private:
    std::atomic_bool mInterrupted{false};
    AVPickerManager *mManager = nullptr;
    const QString mFilePath;
};

} // namespace Veloran
