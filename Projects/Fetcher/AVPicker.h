#pragma once

#include <QRunnable>
#include <QString>

#include <atomic>

namespace Veloran {

class BasicObject;
class PickerHost;

enum class PickerKind { Video, Audio };

// A per-file worker of the picker manager. The manager owns it (auto-deletion is
// switched off before every start), runs it on its pool and, when the run hands it
// back through the host's recyclePicker, caches it with its opened file or deletes
// it. Once interrupted a picker is never reused, so the flag is never cleared.
//
// run() is fixed here: answer the work from the preview cache when it holds all of
// it (the file is then not opened), else open the file (kept open across runs), serve
// the work with the source on the running thread, or answer every request with a
// failure when the file does not open; then, always last, hand the picker back.
class AVPicker : public QRunnable
{
public:
    AVPicker(PickerKind kind, const QString &filePath, PickerHost *host);
    ~AVPicker() override;

    AVPicker(const AVPicker &) = delete;
    AVPicker &operator=(const AVPicker &) = delete;

    PickerKind kind() const { return mKind; }
    void requestInterruption();
    bool isInterruptionRequested() const;
    QString filePath() const;

    // Opens the source unless it is open; true when it is.
    virtual bool ensureOpened() = 0;

    void run() final;

    // The manager prepares a picker (its request, its cached source) on its own
    // thread and the pool runs it on another. The pool's queue orders the two, but
    // through a lock inside Qt that the thread sanitizer cannot see; this explicit
    // release (before the start) and acquire (first thing in run) makes the hand-over
    // visible to it. It costs one atomic store and load per run.
    void handOver();

protected:
    PickerHost *host() const { return mHost; }

private:
    // The opened source, moved to the running thread for serve().
    virtual BasicObject *source() const = 0;
    // Answers the current work from the opened source.
    virtual void serve() = 0;
    // Answers the current work when the file does not open.
    virtual void answerFailure() = 0;
    // Answers the whole of the current work from the preview cache; false, with nothing
    // answered, when the cache does not hold all of it.
    virtual bool answerFromCache() = 0;

    const PickerKind mKind;
    std::atomic_bool mInterrupted{false};
    std::atomic_int mRuns{0};
    PickerHost *const mHost;
    const QString mFilePath;
};

} // namespace Veloran
