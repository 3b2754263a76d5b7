#pragma once

#include "Projects/Fetcher/AVPicker.h"
#include "Projects/Fetcher/AudioSampleRequest.h"
#include "Projects/Fetcher/PreviewCacheEntry.h"

#include <QSharedPointer>

namespace Veloran {

class AudioSource;

// Answers one audio request: decodes the range as 8-bit mono at 48 kHz and reduces
// it to `sampleCount` peak-to-peak values, delivered in `count` pieces so that a
// waveform can be drawn while the scan goes on. A file that cannot be opened is
// answered with one empty piece (index 0), so that every request gets an answer.
class AudioPicker : public AVPicker
{
public:
    AudioPicker(const QString &filePath, PickerHost *host);
    ~AudioPicker() override;

    void setRequest(const AudioSampleRequest &request);
    bool ensureOpened() override;

    static constexpr int kSampleRate = 48000;

    // Number of 48 kHz samples that make one value (at least one).
    static int samplesPerValue(qint64 lengthMs, int sampleCount);
    // Values in piece `index` of `count` when `done` of `sampleCount` are delivered:
    // the pieces share the values evenly, the last ones take the remainder.
    static int pieceQuota(int sampleCount, int done, int count, int index);

private:
    BasicObject *source() const override;
    void serve() override;
    void answerFailure() override;
    bool answerFromCache() override;

    // Emits the pieces and appends their values to `allValues`; false when interrupted.
    bool scan(qint64 lengthMs, QList<uint8_t> &allValues);

    QSharedPointer<AudioSource> mSource;
    AudioSampleRequest mRequest;
};

} // namespace Veloran
