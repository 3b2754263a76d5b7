#include "VeloranDec/FFStreamReader.h"

#include "FFmpegJoint.h"
#include "VeloranDec/FFDecoder.h"
#include "VeloranDec/FFDemuxer.h"

#include <QThread>

#include <algorithm>

namespace Veloran {

namespace {

// How often a backward read moves its boundary one frame back before giving up.
// Real files need one or two steps (a seek landing exactly on the boundary).
constexpr int kMaxStepsBack = 50;

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
    close();
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
    mDemuxer = QSharedPointer<FFDemuxer>(new FFDemuxer);
    const bool opened = mDemuxer->open(path);
    return openChosenStream(path, opened ? streamIndex : -1);
}

bool FFStreamReader::openChosenStream(const QString &path, int index)
{
    mFrames.clear();
    AVFormatContextPtr ctx = mDemuxer ? mDemuxer->formatCtx() : AVFormatContextPtr();
    if (ctx && index >= 0 && unsigned(index) < ctx->nb_streams) {
        mDecoder.reset(new FFDecoder);
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
    // The caller moves the decoder on: an accurate read must seek again.
    remember({}, {});
    return decodeNextFrame();
}

AVFramePtr FFStreamReader::decodeNextFrame()
{
    if (mStreamIndex < 0 || !mDemuxer || !mDecoder)
        return {};
    if (!mFrames.empty())
        return takeFirstFrame();

    for (;;) {
        const AVPacketPtr packet = mDemuxer->readPacket(mStreamIndex);
        // A null packet drains the decoder at the end of the input (or after a read
        // error). The decoder keeps accepting the drain once it is at its end, so
        // a drain that yields nothing is the end of the stream. A packet the
        // decoder rejects (damaged data, or a frame whose references were skipped
        // by a seek into the middle of a group of pictures) is passed over.
        if (!mDecoder->sendPacket(packet)) {
            if (!packet)
                return {};
            continue;
        }
        while (AVFramePtr frame = mDecoder->recvFrame())
            mFrames.push_back(frame);
        if (!mFrames.empty())
            return takeFirstFrame();
        if (!packet)
            return {};
    }
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
    remember({}, {});
    return decodeNextFrameMs();
}

AVFramePtr FFStreamReader::decodeNextFrameMs()
{
    AVFramePtr frame = decodeNextFrame();
    if (frame && getStream())
        resetPtsToMs(frame);
    return frame;
}

void FFStreamReader::resetPosition(long long ms, bool byStream)
{
    if (!mDemuxer)
        return;
    assertOwnThread();
    mFrames.clear();
    remember({}, {});
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
    const long long interval = getStream() ? frameIntervalsMs() : 0;
    // Reading on starts the scan below with the last frame returned held and the
    // frame after it (when already read) next: exactly where the scan after a seek
    // would stand once it got there, as every frame before lies more than one
    // interval before the target.
    AVFramePtr held;
    AVFramePtr frame;
    if (accurate && canReadOnTo(ms, interval)) {
        held = mShownFrame;
        frame = mFrameAfterShown;
        remember({}, {});
    } else {
        // The frame at a time within the first frame is the first frame: seek to
        // the very start, which no container gets wrong.
        seek(ms < interval ? 0 : ms);
    }
    int attempt = 1;
    long long step = 0;
    for (;; frame.reset()) {
        if (!frame)
            frame = decodeNextFrameMs();
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
        // The target lies between the held frame and this one: the held frame is
        // the one on screen at the target.
        if (held && pts > ms && held->pts <= ms)
            return remember(held, frame);
        // Landed after the target: try again from a bit earlier.
        if (seekBack(ms, pts, attempt, step)) {
            held.reset();
            continue;
        }
        if (pts > ms - interval) {
            // A frame after the target (the step-backs ran out) is not a position
            // to read on from.
            return pts <= ms ? remember(frame, {}) : frame;
        }
        held = frame;
    }
}

bool FFStreamReader::canReadOnTo(long long ms, long long interval)
{
    return mShownFrame && mShownFrame->pts == mShownPtsMs && interval > 0 && mShownPtsMs <= ms - interval
           && readingOnIsCheaper(mShownPtsMs, ms);
}

AVFramePtr FFStreamReader::remember(AVFramePtr shown, AVFramePtr next)
{
    mShownFrame = shown;
    mShownPtsMs = shown ? shown->pts : 0;
    mFrameAfterShown = std::move(next);
    return shown;
}

bool FFStreamReader::readingOnIsCheaper(long long, long long)
{
    return false;
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

QVector<AVFramePtr> FFStreamReader::readFramesBefore(long long ms)
{
    long long boundary = ms;
    seek(boundary);
    QVector<AVFramePtr> result;
    int stepsBack = 0;
    for (;;) {
        AVFramePtr frame = readNextFrame();
        if (!frame)
            return result;
        if (frame->pts < boundary) {
            result.append(frame);
            continue;
        }
        if (!result.isEmpty())
            return result;
        // The seek landed at or after the boundary: move it one frame back. Files
        // with broken timestamps (a wrapped clock claiming hours) land after every
        // boundary; without a limit they would be stepped through frame by frame.
        const long long interval = frameIntervalsMs();
        boundary -= interval;
        if (boundary < 0 || interval < 1 || ++stepsBack > kMaxStepsBack)
            return result;
        seek(boundary);
    }
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
