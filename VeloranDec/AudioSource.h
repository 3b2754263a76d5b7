#pragma once

#include "Common/BasicObject.h"
#include "FFmpegJointPtrs.h"
#include "vrfetcher_export.h"

#include <QSharedPointer>
#include <QString>
#include <QVector>

#include <memory>

extern "C" {
#include <libavutil/samplefmt.h>
}

class QThread;

namespace Veloran {

class FFAudioStreamReader;
class FFAudioAdapter;
class IAudioFrame;

/// Decoded audio of one stream, converted to one sample format, channel count and
/// rate. Frames the converter refuses are skipped. Used from the thread that owns
/// it (opening and reading check this in Debug builds). Failures give false, an
/// empty frame or list, 0 or -1; nothing throws.
class VRFETCHER_EXPORT AudioSource : public BasicObject
{
    Q_OBJECT
public:
    /// A source with no stream open.
    explicit AudioSource(QObject *parent = nullptr);
    /// Deletes the reader and the adapter.
    ~AudioSource() override;

    /// Opens an audio stream of the file and sets the output to outFormat,
    /// outChannels and outSampleRate. nth: the nth audio stream, -1 for the best
    /// one. False, with no reader left, when the file or the stream does not open.
    bool open(const QString &path, AVSampleFormat outFormat, int outChannels, int nth, int outSampleRate);
    /// The stream's duration in ms, else the container's. Only meaningful on an
    /// opened source; 0 otherwise and when unknown.
    long long durationMs();
    /// One codec frame in ms. Only meaningful on an opened source; 0 otherwise.
    long long frameInterval();
    /// The container index of the open stream; -1 when nothing is open.
    int currentStreamIndex();
    /// The current frame's time in ms; 0 without one.
    long long curPts();

    /// The frame converted to the output format; the converter is made from the
    /// first frame when open() could not make it. Empty for an empty frame and
    /// when the converter refuses it (or holds its samples back for now).
    AVFramePtr adaptFrame(AVFramePtr frame);
    // The reads work as VideoSource's of the same names, except that a frame the
    // converter refuses is skipped for the next one, and that a seek drops the
    // samples the converter held back from before it. Empty when nothing is open.
    /// The next frame that converts; empty at the end of the stream.
    QSharedPointer<IAudioFrame> readNextAdaptFrame();
    /// The frame at ms; an accurate read cuts it to begin with the sample at ms.
    QSharedPointer<IAudioFrame> seekAndReadNextAdaptFrame(long long ms, bool accurate);
    /// The frames starting before ms, nearest first; at most n of them.
    QVector<QSharedPointer<IAudioFrame>> revertSeekAndReadNextAdaptFrame(long long ms, long long n);
    /// The last frame read or sought; empty before the first.
    QSharedPointer<IAudioFrame> currentAdaptFrame();

private:
    // moveSelfToThread() takes the reader (with demuxer and decoder) and the adapter along.
    QList<BasicObject *> threadParts() const override;
    QSharedPointer<IAudioFrame> convertFrom(AVFramePtr frame);
    // A seek starts a new stretch of audio: nothing held back from before may leak in.
    void dropDelayedSamples();

    std::unique_ptr<FFAudioStreamReader> mReader;
    std::unique_ptr<FFAudioAdapter> mAdapter;
    AVFramePtr mCurrentFrame;
    int mOutChannels = 0;
    AVSampleFormat mOutFormat = AVSampleFormat(0);
    int mOutSampleRate = 0;
};

} // namespace Veloran
