#pragma once

#include "Common/BasicObject.h"
#include "FFmpegJoint.h"
#include "vrfetcher_export.h"

#include <QSharedPointer>
#include <QString>
#include <QVector>

#include <list>
#include <memory>

class QThread;

namespace Veloran {

class FFDemuxer;
class FFDecoder;

// What the video and audio stream readers have in common: one demuxer and one
// decoder for a single stream of a file, the queue of decoded frames, and the
// ways of jumping in the stream (plain seek, frame-accurate seek with step-back,
// reading the run of frames before a time). The readers supply the time rule
// (how a frame's timestamp becomes milliseconds) and the frame interval.
class VRFETCHER_EXPORT FFStreamReader : public BasicObject
{
    Q_OBJECT
public:
    ~FFStreamReader() override;

    // The nth stream of `type` (counting from 0), or the best one when nth < 0.
    bool openStream(const QString &path, AVMediaType type, int nth);
    // The stream with this container index, through a plain demuxer.
    bool openStream(const QString &path, int streamIndex);
    void close();

    // The next decoded frame, its timestamps untouched; empty at the end of the
    // stream. Packets the decoder rejects are passed over.
    AVFramePtr readNextRawFrame();
    // The next frame with its time in milliseconds in pts and best_effort_timestamp.
    AVFramePtr readNextFrame();
    virtual void resetPtsToMs(const AVFramePtr &frame) = 0;
    virtual long long frameIntervalsMs() = 0;

    // Drop queued frames, move the demuxer, flush the decoder, restart the
    // timestamp prediction at ms. The flag is not used.
    void seek(long long ms, bool flag = false);
    void seekByStream(long long ms, bool flag = false);

    // With accurate, the frame shown at ms (the last one starting at or before it);
    // otherwise the first frame after the seek.
    AVFramePtr seekAndReadNextFrame(long long ms, bool accurate);
    // One step back for an accurate seek that landed after the target; false when
    // no further step is allowed or useful.
    bool seekBack(long long targetMs, long long firstPtsMs, int &attempt, long long &stepMs);

    long long durationMs();
    long long demuxDurationMs();
    AVStream *getStream();
    AVCodecParameters *getCodecParam();
    int mediaType();
    int streamIndex() const { return mStreamIndex; }

    // Moves the reader, its demuxer and its decoder; null detaches them.
    void moveSelfToThread(QThread *thread);

protected:
    explicit FFStreamReader(QObject *parent = nullptr);

    // Frames in decoding order from the seek landing point up to the first frame at
    // or after the boundary; the boundary steps back one frame interval at a time
    // while the seek lands at or after it.
    QVector<AVFramePtr> readFramesBefore(long long ms);

    // Called once a stream is open, before openStream returns true.
    virtual void ensureStreamInfo(const QString &path) = 0;
    // The position a seek moved to: where the timestamp prediction starts again.
    virtual void restartPrediction(long long ms) = 0;

    QSharedPointer<FFDemuxer> mDemuxer;
    std::unique_ptr<FFDecoder> mDecoder;

private:
    bool openChosenStream(const QString &path, int index);
    void resetPosition(long long ms, bool byStream);
    AVFramePtr takeFirstFrame();

    // Decoded frames not handed out yet, oldest first.
    std::list<AVFramePtr> mFrames;
    int mStreamIndex = -1;
};

} // namespace Veloran
