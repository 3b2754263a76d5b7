#pragma once

#include "Common/BasicObject.h"
#include "FFmpegJointPtrs.h"
#include "VeloranDec/FFDecoder.h"
#include "vrfetcher_export.h"

#include <QSharedPointer>
#include <QString>
#include <QVector>

#include <list>
#include <memory>

extern "C" {
#include <libavutil/avutil.h>
}

class QThread;
struct AVBufferRef;
struct AVStream;

namespace Veloran {

class FFDemuxer;

/// What the video and audio stream readers have in common: one demuxer and one
/// decoder for a single stream of a file, the queue of decoded frames, and the
/// ways of jumping in the stream (plain seek, frame-accurate seek with step-back,
/// reading the run of frames before a time). The readers supply the time rule
/// (how a frame's timestamp becomes milliseconds) and the frame interval.
///
/// Used from the thread that owns it (opening, reading and seeking check this in
/// Debug builds); moveSelfToThread() hands it over together with its parts.
/// Failures give false, an empty frame or 0; nothing throws.
class VRFETCHER_EXPORT FFStreamReader : public BasicObject
{
    Q_OBJECT
public:
    /// Frames a backward read returns when the caller names no count.
    static constexpr int kDefaultFramesBefore = 8;
    /// The most frames a backward read holds, whatever the caller asks for.
    static constexpr int kMostFramesBefore = 32;

    /// Closes the stream.
    ~FFStreamReader() override;

    /// Opens the nth stream of `type` (counting from 0), or the best one when nth < 0
    /// (the first of the type when FFmpeg names none). Uses the demuxer
    /// FFDemuxer::createDemuxer() picks. False, and closed, when the file does not
    /// open, has no such stream or its decoder does not open.
    bool openStream(const QString &path, AVMediaType type, int nth);
    /// As openStream(path, type, nth) on a demuxer that is already open, shared with
    /// its other users: the file is not opened again. Reading and seeking move the
    /// shared demuxer for every user. False, and closed, for a null or closed
    /// demuxer.
    bool openStream(const QSharedPointer<FFDemuxer> &opened, AVMediaType type, int nth);
    /// Opens the stream with this container index, through a plain demuxer. False,
    /// and closed, when the file does not open, the index is out of range or the
    /// decoder does not open.
    bool openStream(const QString &path, int streamIndex);
    /// Drops the decoder, the demuxer, the queued frames and everything known about
    /// the stream; safe to call twice. Opening starts with it, so that nothing of an
    /// earlier file carries over.
    void close();

    /// The next decoded frame, its timestamps untouched; empty at the end of the
    /// stream, after a read error and when not open. Packets the decoder rejects
    /// are passed over.
    AVFramePtr readNextRawFrame();
    /// The next frame with its time in milliseconds in pts and best_effort_timestamp;
    /// empty as readNextRawFrame().
    AVFramePtr readNextFrame();
    /// Rewrites the frame's pts and best_effort_timestamp as milliseconds.
    virtual void resetPtsToMs(const AVFramePtr &frame) = 0;
    /// The length of one frame in milliseconds; 0 when not open.
    virtual long long frameIntervalsMs() = 0;

    /// Drops queued frames, moves the demuxer to ms, flushes the decoder and
    /// restarts the timestamp prediction at ms. Does nothing when not open. The
    /// flag is not used.
    void seek(long long ms, bool flag = false);
    /// As seek(), but the demuxer seeks in this stream's own time.
    void seekByStream(long long ms, bool flag = false);

    /// With accurate, the frame shown at ms: the last one starting at or before it,
    /// whatever the spacing of the frames (the frame after it is read to see whether
    /// it still starts in time, unless frameAtTarget() can tell without). The seek
    /// steps back up to three times (see seekBack()) when it lands after ms or finds
    /// no frame at all; a time within the first frame interval seeks to the start.
    /// When every frame lies after ms, the first one after the last step back.
    /// Otherwise the first frame after the seek. Empty when no frame could be read.
    ///
    /// An accurate read whose target lies at or after the frame the previous accurate
    /// read returned may read on from there instead of seeking, when
    /// readingOnIsCheaper() says so. It returns the same frame the seek would: both
    /// scan the frames in order with the same rule. Any other read or seek in
    /// between makes the next read seek.
    AVFramePtr seekAndReadNextFrame(long long ms, bool accurate);
    /// Whether accurate reads leave undecoded the frames that cannot be the one at
    /// the target: frames no other frame refers to (B-frames) starting before a
    /// frame already sent to the decoder that lies at or before the target. On by
    /// default; results are the same either way, only the work differs.
    void setSkipsHiddenFrames(bool skip) { mSkipsHiddenFrames = skip; }

    /// One step back for an accurate seek that landed after the target: seeks to
    /// targetMs minus `stepMs` on attempt 1, minus 8 times `stepMs` but at least 1 s
    /// on attempt 2, minus 64 times `stepMs` but at least 5 s on attempt 3 (`stepMs`,
    /// set on attempt 1, is the first overshoot but at least one frame), and counts
    /// the attempt. False, without seeking, after three attempts, when
    /// the frame is not after the target or the target lies within the first frame.
    bool seekBack(long long targetMs, long long firstPtsMs, int &attempt, long long &stepMs);

    /// The stream's own duration; 0 when unknown or not open.
    long long durationMs();
    /// The container's duration; 0 when unknown or not open.
    long long demuxDurationMs();
    /// The open stream; null when not open. Owned by the demuxer.
    AVStream *getStream();
    /// The open stream's codec parameters; null when not open.
    AVCodecParameters *getCodecParam();
    /// The stream's AVMediaType; -1 when not open.
    int mediaType();
    /// The open stream's container index; -1 when not open.
    int streamIndex() const { return mStreamIndex; }

protected:
    /// moveSelfToThread() takes the demuxer and the decoder along.
    QList<BasicObject *> threadParts() const override;
    /// A reader with no stream open.
    explicit FFStreamReader(QObject *parent = nullptr);

    /// The frames starting before ms, in order, the last one being the frame shown
    /// just before ms: those decoded from where the seek to ms lands, or, when it
    /// lands at or after ms, from where a step back (as seekBack() for an accurate
    /// read) lands. Holds at most `count` frames, the latest ones (at most
    /// kMostFramesBefore; kDefaultFramesBefore when count < 1), whatever the
    /// distance to the key frame. Empty when nothing lies before ms.
    QVector<AVFramePtr> readFramesBefore(long long ms, long long count);

    /// For an accurate read: `frame`, just read and timed, starts at or before ms.
    /// When the reader can tell that no later frame starts at or before ms, returns
    /// the frame to hand out for ms; null when only the next frame can tell. Called
    /// before any other frame is read. This default cannot tell.
    virtual AVFramePtr frameAtTarget(const AVFramePtr &frame, long long ms);

    /// Whether decoding on from the frame shown at fromMs to the one at toMs (both
    /// as frame times of this reader, fromMs < toMs) costs less than seeking to toMs.
    /// Streams whose seeks are cheap keep this default: never.
    virtual bool readingOnIsCheaper(long long fromMs, long long toMs);

    /// ms in the stream's own time base, rounded down; AV_NOPTS_VALUE when the
    /// reader cannot tell, and then accurate reads decode every frame.
    virtual long long streamTimeAtOrBefore(long long ms);

    /// Called once a stream is open, before openStream returns true.
    virtual void ensureStreamInfo(const QString &path) = 0;
    /// Called by close(): forget what ensureStreamInfo() learnt.
    virtual void forgetStreamInfo() = 0;
    /// The position a seek moved to: where the timestamp prediction starts again.
    virtual void restartPrediction(long long ms) = 0;

    QSharedPointer<FFDemuxer> mDemuxer; ///< null when not open
    std::unique_ptr<FFDecoder> mDecoder; ///< null when not open

private:
    bool openChosenStream(const QString &path, int index);
    void dropStream();
    // Receives into mFrames until the decoder needs input, ends, fails or the
    // queue is full (Frame); returns that step.
    FFDecoder::Step receiveFrames();
    bool stepBackBefore(long long ms, long long firstPtsMs, int &attempt, long long &stepMs);
    void resetPosition(long long ms, bool byStream);
    AVFramePtr takeFirstFrame();
    AVFramePtr decodeNextFrame();
    AVFramePtr decodeNextFrameMs();
    bool canReadOnTo(long long ms, long long interval);
    // A frame's timestamps as decoded, before they became milliseconds.
    struct DecodedTimes
    {
        int64_t pts;
        int64_t bestEffort;
    };
    static constexpr DecodedTimes kNoTimes {AV_NOPTS_VALUE, AV_NOPTS_VALUE};
    AVFramePtr remember(AVFramePtr shown, AVFramePtr next, DecodedTimes nextTimes = kNoTimes);
    AVFramePtr takeFrameAfterShown();
    bool isHidden(const AVPacketPtr &packet);
    AVFramePtr scanTo(long long ms, bool accurate);

    // Decoded frames not handed out yet, oldest first.
    std::list<AVFramePtr> mFrames;
    // Where the last accurate read left the decoder: the frame it returned and,
    // when it was read, the frame after it (both with times in ms). Empty after
    // any other read or seek.
    AVFramePtr mShownFrame;
    AVFramePtr mFrameAfterShown;
    // The shown frame's time as returned, in case its holder rewrote it since.
    long long mShownPtsMs = 0;
    // The frame after the shown one was read to see where the shown one ends; the
    // next plain read hands it out.
    DecodedTimes mAfterShownTimes = kNoTimes;
    DecodedTimes mLastDecodedTimes = kNoTimes; // of the frame decodeNextFrameMs() gave last
    int mStreamIndex = -1;
    // While an accurate read scans: its target in stream time, and the latest
    // packet time sent since the last seek that lies at or before it.
    bool mSkipsHiddenFrames = true;
    long long mHiddenBefore = AV_NOPTS_VALUE;
    long long mLatestInTime = AV_NOPTS_VALUE;
};

} // namespace Veloran
