#include "AudioPicker.h"

#include "FFmpegJoint.h"
#include "FFmpegJoint.h"
#include "Projects/Fetcher/PickerHost.h"
#include "Projects/Fetcher/PreviewCache.h"
#include "VeloranBaseEntry.h"
#include "VeloranDec/AudioSource.h"
#include "VeloranDec/IAudioFrame.h"

#include <QElapsedTimer>

#include <algorithm>
#include <atomic>

namespace Veloran {

namespace {

// Runs of the audio pickers of the process, for the log.
std::atomic_int gsAudioRuns{0};

// The hot path of a scan: a plain loop over contiguous bytes with no calls inside,
// which the compiler turns into packed byte min/max instructions.
void accumulatePeaks(const uint8_t *samples, int n, uint8_t &maxValue, uint8_t &minValue)
{
    uint8_t hi = maxValue;
    uint8_t lo = minValue;
    for (int k = 0; k < n; ++k) {
        const uint8_t v = samples[k];
        hi = v > hi ? v : hi;
        lo = v < lo ? v : lo;
    }
    maxValue = hi;
    minValue = lo;
}

// The decoded samples of the range, frame after frame, as one stream of bytes.
class SampleCursor
{
public:
    SampleCursor(AudioSource &source, QSharedPointer<IAudioFrame> first)
        : mSource(source)
    {
        take(std::move(first));
    }

    // Samples left in the current frame, reading the next frame when it is used up;
    // 0 at the end of the stream.
    int available()
    {
        while (!mEnded && mPos >= mSize)
            take(mSource.readNextAdaptFrame());
        return mEnded ? 0 : mSize - mPos;
    }
    const uint8_t *data() const { return mData + mPos; }
    void advance(int n) { mPos += n; }

private:
    void take(QSharedPointer<IAudioFrame> frame)
    {
        mFrame = std::move(frame);
        mPos = 0;
        mSize = 0;
        mData = nullptr;
        if (!mFrame || mFrame->isEmpty()) {
            mEnded = true;
            return;
        }
        mData = mFrame->data(0);
        mSize = mData ? std::max(0, mFrame->samples()) : 0;
    }

    AudioSource &mSource;
    QSharedPointer<IAudioFrame> mFrame;
    const uint8_t *mData = nullptr;
    int mSize = 0;
    int mPos = 0;
    bool mEnded = false;
};

} // namespace

AudioPicker::AudioPicker(const QString &filePath, PickerHost *host)
    : AVPicker(PickerKind::Audio, filePath, host)
{
}

AudioPicker::~AudioPicker() = default;

void AudioPicker::setRequest(const AudioSampleRequest &request)
{
    mRequest = request;
}

bool AudioPicker::ensureOpened()
{
    if (mSource)
        return true;
    mSource = QSharedPointer<AudioSource>::create();
    if (!mSource->open(filePath(), AV_SAMPLE_FMT_U8, 1, -1, kSampleRate)) {
        mSource.reset();
        return false;
    }
    return true;
}

int AudioPicker::samplesPerValue(qint64 lengthMs, int sampleCount)
{
    if (sampleCount < 1 || lengthMs < 1)
        return 1;
    const double perValue = (lengthMs * kSampleRate) / 1000.0 / sampleCount;
    return perValue < 1.0 ? 1 : static_cast<int>(std::min(perValue, 2147483647.0));
}

int AudioPicker::pieceQuota(int sampleCount, int done, int count, int index)
{
    if (count - index < 1)
        return 0;
    return std::max(0, (sampleCount - done) / (count - index));
}

BasicObject *AudioPicker::source() const
{
    return mSource.data();
}

void AudioPicker::answerFailure()
{
    // One empty answer, so that the caller knows this request is over.
    host()->answerSample(mRequest, QList<uint8_t>(), 0);
}

bool AudioPicker::answerFromCache()
{
    const std::optional<CachedPeaks> cached = PreviewCache::shared().peaks(mRequest);
    if (!cached)
        return false;
    // The pieces as scan() cut them.
    mRequest.length = cached->length;
    int done = 0;
    for (int i = 0; i < mRequest.count; ++i) {
        const int quota = pieceQuota(mRequest.sampleCount, done, mRequest.count, i);
        host()->answerSample(mRequest, cached->values.mid(done, quota), i);
        done += quota;
    }
    return true;
}

void AudioPicker::serve()
{
    const int call = ++gsAudioRuns;
    VR_LOG << "[fetch samples_v2] execute. call count: " << call;
    QElapsedTimer elapsed;
    elapsed.start();
    if (isInterruptionRequested()) {
        VR_LOG << "[fetch samples_v2] aborted.";
        return;
    }
    const AudioSampleRequest asked = mRequest; // the cache's key, before the length is cut

    VR_LOG << "---fetch--- begin = " << mRequest.begin << ",length = " << mRequest.length
           << ",sampleCount = " << mRequest.sampleCount << ",count = " << mRequest.count;
    const qint64 duration = mSource->durationMs();
    if (duration < mRequest.begin + mRequest.length) {
        VR_LOG << "[fetch samples_v2] src.durationMs() < mBegin + mLength: " << duration << ", "
               << mRequest.begin + mRequest.length;
        // The answer carries the range actually scanned.
        mRequest.length = duration - mRequest.begin;
    }

    CachedPeaks computed{mRequest.length, {}};
    if (scan(mRequest.length, computed.values)) {
        PreviewCache::shared().storePeaks(asked, computed);
        VR_LOG << "[fetch samples_v2] finished total cost: " << elapsed.elapsed() << "ms "
               << "call count(" << call << ")";
    }
}

bool AudioPicker::scan(qint64 lengthMs, QList<uint8_t> &allValues)
{
    SampleCursor cursor(*mSource, mSource->seekAndReadNextAdaptFrame(mRequest.begin, true));
    if (mRequest.count < 1)
        return true;

    const int perValue = samplesPerValue(lengthMs, mRequest.sampleCount);
    uint8_t maxValue = 0;
    uint8_t minValue = 255;
    int inBucket = 0; // a bucket continues across frames and pieces
    int done = 0;
    for (int i = 0; i < mRequest.count; ++i) {
        if (isInterruptionRequested()) {
            VR_LOG << "[fetch samples_v2] aborted.2";
            return false;
        }
        const int quota = pieceQuota(mRequest.sampleCount, done, mRequest.count, i);
        QList<uint8_t> values;
        values.reserve(quota);
        while (values.size() < quota) {
            const int available = cursor.available();
            if (available == 0)
                break;
            if (isInterruptionRequested()) {
                VR_LOG << "[fetch samples_v2] aborted.1";
                return false;
            }
            const int n = std::min(perValue - inBucket, available);
            accumulatePeaks(cursor.data(), n, maxValue, minValue);
            cursor.advance(n);
            inBucket += n;
            if (inBucket == perValue) {
                values.append(static_cast<uint8_t>(maxValue - minValue));
                maxValue = 0;
                minValue = 255;
                inBucket = 0;
            }
        }
        // Frames that ran out early leave zeros: every piece holds its quota.
        while (values.size() < quota)
            values.append(0);
        allValues += values;
        host()->answerSample(mRequest, values, i);
        done += quota;
    }
    return true;
}

} // namespace Veloran
