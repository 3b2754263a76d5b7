#pragma once

#include "Common/BasicObject.h"
#include "FFmpegJoint.h"
#include "vrfetcher_export.h"

#include <QSharedPointer>
#include <QString>
#include <QVector>

extern "C" {
#include <libavutil/samplefmt.h>
}

class QThread;

namespace Veloran {

class FFAudioStreamReader;
class FFAudioAdapter;
class IAudioFrame;

// Decoded audio of one stream, converted to one sample format, channel count and
// rate. Frames the converter refuses are skipped. Used from one thread at a time.
class VRFETCHER_EXPORT AudioSource : public BasicObject
{
    Q_OBJECT
public:
    explicit AudioSource(QObject *parent = nullptr);
    ~AudioSource() override;

    // nth: the nth audio stream, -1 for the best one.
    bool open(const QString &path, AVSampleFormat outFormat, int outChannels, int nth, int outSampleRate);
    // Only on an opened source.
    long long durationMs();

    AVFramePtr adaptFrame(AVFramePtr frame);
    QSharedPointer<IAudioFrame> readNextAdaptFrame();
    QSharedPointer<IAudioFrame> seekAndReadNextAdaptFrame(long long ms, bool accurate);
    // The frames just before ms, nearest first.
    QVector<QSharedPointer<IAudioFrame>> revertSeekAndReadNextAdaptFrame(long long ms, long long n);
    QSharedPointer<IAudioFrame> currentAdaptFrame();

    long long curPts();
    // Only on an opened source.
    long long frameInterval();
    int currentStreamIndex();

    // Moves the source, its reader (with demuxer and decoder) and its adapter;
    // null detaches them from every thread.
    void moveSelfToThread(QThread *thread);

private:
    QSharedPointer<IAudioFrame> convertFrom(AVFramePtr frame);
    void deleteReaderAndAdapter();

    FFAudioStreamReader *mReader = nullptr;
    FFAudioAdapter *mAdapter = nullptr;
    AVFramePtr mCurrentFrame;
    int mOutChannels = 0;
    AVSampleFormat mOutFormat = AVSampleFormat(0);
    int mOutSampleRate = 0;
};

} // namespace Veloran
