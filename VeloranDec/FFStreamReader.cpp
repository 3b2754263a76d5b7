#include "VeloranDec/FFStreamReader.h"

#include "FFmpegJoint.h"
#include "VeloranDec/FFDecoder.h"
#include "VeloranDec/FFDemuxer.h"

#include <QThread>

#include <algorithm>
#include <deque>

namespace Veloran {

namespace {

// The most decoded frames queued at once: a decoder that puts out more for one
// packet keeps the rest until these are handed out.
constexpr size_t kMostFramesQueued = 32;

// How far an accurate seek that found no frame at all steps back first.
constexpr long long kNothingFoundStepMs = 1000;

// The first stream of `type` counting from 0 whose count reaches nth; -1 if none.
int nthStreamOfType(const AVFormatContext *ctx, AVMediaType type, int nth)
{
    int count = 0;
    for (unsigned i = 0; i < ctx->nb_streams; ++i) {
        if (ctx->streams[i]->codecpar->codec_type != type)
            continue;
        if (count == nth)
            return int(i);
        ++count;
    }
    return -1;
}

} // namespace

FFStreamReader::FFStreamReader(QObject *parent)
    : BasicObject(parent)
{
}

FFStreamReader::~FFStreamReader()
{
    dropStream();
}

bool FFStreamReader::openStream(const QString &path, AVMediaType type, int nth)
{
    assertOwnThread();
    const QSharedPointer<FFDemuxer> demuxer = FFDemuxer::createDemuxer(path, false);
    if (demuxer && demuxer->open(path))
        return openStream(demuxer, type, nth);
    close();
    return false;
}

bool FFStreamReader::openStream(const QSharedPointer<FFDemuxer> &opened, AVMediaType type, int nth)
{
    assertOwnThread();
    close();
    mDemuxer = opened;
    int index = -1;
    if (AVFormatContext *ctx = mDemuxer ? mDemuxer->formatCtx().data() : nullptr) {
        if (nth >= 0) {
            index = nthStreamOfType(ctx, type, nth);
        } else {
            index = av_find_best_stream(ctx, type, -1, -1, nullptr, 0);
            logIf_FF_Error(index, "av_find_best_stream error.");
            if (index < 0)
                index = nthStreamOfType(ctx, type, 0);
        }
    }
    return openChosenStream(mDemuxer ? mDemuxer->path() : QString(), index);
}

bool FFStreamReader::openStream(const QString &path, int streamIndex)
{
    assertOwnThread();
    close();
    mDemuxer = QSharedPointer<FFDemuxer>(new FFDemuxer);
    const bool opened = mDemuxer->open(path);
    return openChosenStream(path, opened ? streamIndex : -1);
}

bool FFStreamReader::openChosenStream(const QString &path, int index)
{
    AVFormatContextPtr ctx = mDemuxer ? mDemuxer->formatCtx() : AVFormatContextPtr();
    if (ctx && index >= 0 && unsigned(index) < ctx->nb_streams) {
        mDecoder = std::make_unique<FFDecoder>();
        if (mDecoder->open(ctx->streams[index], -1)) {
            mStreamIndex = index;
            ensureStreamInfo(path);
            return true;
        }
    }
    close();
    return false;
}

void FFStreamReader::close()
{
    dropStream();
    forgetStreamInfo();
}

void FFStreamReader::dropStream()
{
    mDecoder.reset();
    mDemuxer.reset();
    mFrames.clear();
    mShownFrame.reset();
    mFrameAfterShown.reset();
    mStreamIndex = -1;
}

AVFramePtr FFStreamReader::readNextRawFrame()
{
    assertOwnThread();
    const DecodedTimes times = mAfterShownTimes;
    AVFramePtr frame = takeFrameAfterShown();
    if (!frame)
        return decodeNextFrame();
    frame->pts = times.pts;
    frame->best_effort_timestamp = times.bestEffort;
    return frame;
}

AVFramePtr FFStreamReader::takeFrameAfterShown()
{
    // The caller moves the decoder on: an accurate read must seek again.
    AVFramePtr next = mFrameAfterShown;
    remember({}, {});
    return next;
}

AVFramePtr FFStreamReader::decodeNextFrame()
{
    if (mStreamIndex < 0 || !mDemuxer || !mDecoder)
        return {};
    if (!mFrames.empty())
        return takeFirstFrame();
    // FFmpeg's decode loop: receive until the decoder needs input, then send it the
    // next packet.
    for (bool drained = false;;) {
        const FFDecoder::Step received = receiveFrames();
        if (!mFrames.empty())
            return takeFirstFrame();
        // After the drain the decoder says End once its last frame is out; whatever
        // else it says then (a rejected drain, a failed frame), no frame is coming.
        if (received == FFDecoder::Step::End || drained)
            return {};
        // NeedsInput, or a frame that failed to decode: on to the next packet.
        const AVPacketPtr packet = mDemuxer->readPacket(mStreamIndex);
        const bool hidden = isHidden(packet);
        // A frame nothing refers to that can never be shown is not worth a packet.
        if (hidden && (packet->flags & AV_PKT_FLAG_DISPOSABLE))
            continue;
        mDecoder->setSkipNonReference(hidden);
        // A null packet drains the decoder at the end of the input (or after a read
        // error). A packet the decoder rejects (damaged data, or a frame whose
        // references were skipped by a seek into the middle of a group of pictures)
        // is passed over; send() has logged it.
        drained = !packet;
        mDecoder->send(packet);
    }
}

bool FFStreamReader::isHidden(const AVPacketPtr &packet)
{
    if (!packet || packet->pts == AV_NOPTS_VALUE || mHiddenBefore == AV_NOPTS_VALUE)
        return false;
    // The frame of the latest packet at or before the target is decoded and shown
    // later than every earlier one: those are never the frame at the target.
    const bool hidden = mLatestInTime != AV_NOPTS_VALUE && packet->pts < mLatestInTime;
    if (packet->pts <= mHiddenBefore && (mLatestInTime == AV_NOPTS_VALUE || packet->pts > mLatestInTime))
        mLatestInTime = packet->pts;
    return hidden;
}

FFDecoder::Step FFStreamReader::receiveFrames()
{
    // At the cap the rest stays in the decoder until these are handed out.
    while (mFrames.size() < kMostFramesQueued) {
        FFDecoder::Received received = mDecoder->receive();
        if (received.step != FFDecoder::Step::Frame)
            return received.step;
        mFrames.push_back(std::move(received.frame));
    }
    return FFDecoder::Step::Frame;
}

AVFramePtr FFStreamReader::takeFirstFrame()
{
    AVFramePtr frame = std::move(mFrames.front());
    mFrames.pop_front();
    return frame;
}

AVFramePtr FFStreamReader::readNextFrame()
{
    assertOwnThread();
    if (AVFramePtr next = takeFrameAfterShown())
        return next;
    return decodeNextFrameMs();
}

AVFramePtr FFStreamReader::decodeNextFrameMs()
{
    AVFramePtr frame = decodeNextFrame();
    if (frame && getStream()) {
        mLastDecodedTimes = {frame->pts, frame->best_effort_timestamp};
        resetPtsToMs(frame);
    }
    return frame;
}

void FFStreamReader::resetPosition(long long ms, bool byStream)
{
    if (!mDemuxer)
        return;
    assertOwnThread();
    mFrames.clear();
    remember({}, {});
    mLatestInTime = AV_NOPTS_VALUE;
    if (byStream)
        mDemuxer->seekByStream(ms, mStreamIndex);
    else
        mDemuxer->seek(ms);
    if (mDecoder)
        mDecoder->clearBuffer();
    restartPrediction(ms);
}

void FFStreamReader::seek(long long ms, bool)
{
    resetPosition(ms, false);
}

void FFStreamReader::seekByStream(long long ms, bool)
{
    resetPosition(ms, true);
}

AVFramePtr FFStreamReader::seekAndReadNextFrame(long long ms, bool accurate)
{
    // Frames of packets the decoder takes during the scan may be skipped, not
    // those of later plain reads.
    mHiddenBefore = accurate && mSkipsHiddenFrames ? streamTimeAtOrBefore(ms) : AV_NOPTS_VALUE;
    AVFramePtr frame = scanTo(ms, accurate);
    mHiddenBefore = AV_NOPTS_VALUE;
    return frame;
}

AVFramePtr FFStreamReader::scanTo(long long ms, bool accurate)
{
    const long long interval = getStream() ? frameIntervalsMs() : 0;
    // Reading on starts the scan below with the last frame returned held and the
    // frame after it (when already read) next: exactly where the scan after a seek
    // would stand once it got there.
    AVFramePtr held;
    AVFramePtr frame;
    DecodedTimes frameTimes = kNoTimes;
    if (accurate && canReadOnTo(ms, interval)) {
        held = mShownFrame;
        frame = mFrameAfterShown;
        frameTimes = mAfterShownTimes;
        remember({}, {});
    } else {
        // The frame at a time within the first frame is the first frame: seek to
        // the very start, which no container gets wrong.
        seek(ms < interval ? 0 : ms);
    }
    int attempt = 1;
    long long step = 0;
    for (;; frame.reset()) {
        if (!frame) {
            frame = decodeNextFrameMs();
            frameTimes = mLastDecodedTimes;
        }
        if (!frame) {
            // Nothing decodable from the landing point to the end: the seek went
            // past the last key frame (formats seeking without an index guess
            // positions). Try from earlier.
            if (accurate && !held && seekBack(ms, ms + kNothingFoundStepMs, attempt, step))
                continue;
            return held;
        }
        if (!accurate)
            return frame;
        const long long pts = frame->pts;
        if (pts <= ms) {
            // On screen at ms unless a later frame still starts in time: frames
            // may be closer together than the nominal interval.
            if (AVFramePtr shown = frameAtTarget(frame, ms))
                return remember(shown, {});
            held = frame;
            continue;
        }
        // The target lies between the held frame and this one: the held frame is
        // the one on screen at the target.
        if (held)
            return remember(held, frame, frameTimes);
        // Landed after the target: try again from a bit earlier.
        if (seekBack(ms, pts, attempt, step))
            continue;
        // Every frame lies after the target (the step-backs ran out); not a
        // position to read on from.
        return frame;
    }
}

bool FFStreamReader::canReadOnTo(long long ms, long long interval)
{
    return mShownFrame && mShownFrame->pts == mShownPtsMs && interval > 0 && mShownPtsMs <= ms
           && readingOnIsCheaper(mShownPtsMs, ms);
}

AVFramePtr FFStreamReader::remember(AVFramePtr shown, AVFramePtr next, DecodedTimes nextTimes)
{
    mAfterShownTimes = nextTimes;
    mShownFrame = shown;
    mShownPtsMs = shown ? shown->pts : 0;
    mFrameAfterShown = std::move(next);
    return shown;
}

bool FFStreamReader::readingOnIsCheaper(long long, long long)
{
    return false;
}

AVFramePtr FFStreamReader::frameAtTarget(const AVFramePtr &, long long)
{
    return {};
}

long long FFStreamReader::streamTimeAtOrBefore(long long)
{
    return AV_NOPTS_VALUE;
}

bool FFStreamReader::seekBack(long long targetMs, long long firstPtsMs, int &attempt, long long &stepMs)
{
    const long long interval = frameIntervalsMs();
    if (attempt > 3 || firstPtsMs <= targetMs || interval >= targetMs)
        return false;
    // The first step goes back by the overshoot, but at least one frame: a seek
    // lands on the key frame whose decode time is at or before the position, and
    // B-frames can put its picture a few frames later. The next steps go much
    // further: in open groups of pictures the B-frames before a key frame are
    // dropped after a seek, and formats without an index (MPEG-TS) land anywhere in
    // a group and decode only from the next key frame.
    if (attempt == 1)
        stepMs = std::max(firstPtsMs - targetMs, interval);
    static constexpr long long kStepFactor[] = {1, 8, 64};
    static constexpr long long kLeastBackMs[] = {0, 1000, 5000};
    long long position = targetMs - std::max(stepMs * kStepFactor[attempt - 1], kLeastBackMs[attempt - 1]);
    if (position < 0) {
        // From the very start there is nothing earlier to try.
        position = 0;
        attempt = 3;
    }
    resetPosition(position, false);
    ++attempt;
    return true;
}

QVector<AVFramePtr> FFStreamReader::readFramesBefore(long long ms, long long count)
{
    const size_t keep = count >= 1 ? size_t(std::min<long long>(count, kMostFramesBefore)) : kDefaultFramesBefore;
    std::deque<AVFramePtr> kept;
    int attempt = 1;
    long long step = 0;
    seek(ms);
    for (;;) {
        AVFramePtr frame = decodeNextFrameMs();
        if (frame && frame->pts < ms) {
            // Frames come in display order: the latest ones before ms are the ones kept.
            kept.push_back(std::move(frame));
            if (kept.size() > keep)
                kept.pop_front();
            continue;
        }
        // The boundary stays at ms: only the position to decode from moves back.
        if (!kept.empty() || !stepBackBefore(ms, frame ? frame->pts : ms + kNothingFoundStepMs, attempt, step))
            break;
    }
    return QVector<AVFramePtr>(kept.begin(), kept.end());
}

bool FFStreamReader::stepBackBefore(long long ms, long long firstPtsMs, int &attempt, long long &stepMs)
{
    // The frame shown just before ms is the one an accurate read at ms - 1 finds.
    if (seekBack(ms - 1, firstPtsMs, attempt, stepMs))
        return true;
    // Steps back refuse times within the first frame: the start is the place to look.
    if (attempt > 3 || ms <= 0 || firstPtsMs < ms)
        return false;
    resetPosition(0, false);
    attempt = 4;
    return true;
}

long long FFStreamReader::durationMs()
{
    AVStream *stream = getStream();
    if (!stream || stream->duration < 1)
        return 0;
    const double factor = stream->time_base.den != 0 ? double(stream->time_base.num) / stream->time_base.den : 0.0;
    return static_cast<long long>(factor * 1000.0 * double(stream->duration));
}

long long FFStreamReader::demuxDurationMs()
{
    return mDemuxer ? mDemuxer->durationMs() : 0;
}

AVStream *FFStreamReader::getStream()
{
    if (mStreamIndex < 0 || !mDemuxer)
        return nullptr;
    AVFormatContext *ctx = mDemuxer->formatCtx().data();
    if (!ctx || unsigned(mStreamIndex) >= ctx->nb_streams)
        return nullptr;
    return ctx->streams[mStreamIndex];
}

AVCodecParameters *FFStreamReader::getCodecParam()
{
    AVStream *stream = getStream();
    return stream ? stream->codecpar : nullptr;
}

int FFStreamReader::mediaType()
{
    AVCodecParameters *parameters = getCodecParam();
    return parameters ? int(parameters->codec_type) : -1;
}

QList<BasicObject *> FFStreamReader::threadParts() const
{
    return {mDemuxer.data(), mDecoder.get()};
}

} // namespace Veloran
