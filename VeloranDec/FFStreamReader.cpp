#include "VeloranDec/FFStreamReader.h"

#include "VeloranDec/FFDecoder.h"
#include "VeloranDec/FFDemuxer.h"

#include <QThread>

namespace Veloran {

namespace {

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
    mDemuxer = FFDemuxer::createDemuxer(path, false);
    int index = -1;
    if (mDemuxer && mDemuxer->open(path)) {
        AVFormatContext *ctx = mDemuxer->formatCtx().data();
        if (nth >= 0) {
            index = nthStreamOfType(ctx, type, nth);
        } else {
            index = av_find_best_stream(ctx, type, -1, -1, nullptr, 0);
            logIf_FF_Error(index, "av_find_best_stream error.");
            if (index < 0)
                index = nthStreamOfType(ctx, type, 0);
        }
    }
    return openChosenStream(path, index);
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
    mStreamIndex = -1;
}

AVFramePtr FFStreamReader::readNextRawFrame()
{
    assertOwnThread();
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
    AVFramePtr frame = readNextRawFrame();
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
    seek(ms);
    int attempt = 1;
    long long step = 0;
    AVFramePtr held;
    const long long interval = getStream() ? frameIntervalsMs() : 0;
    for (;;) {
        AVFramePtr frame = readNextFrame();
        if (!frame)
            return held;
        if (!accurate)
            return frame;
        const long long pts = frame->pts;
        // The target lies between the held frame and this one: the held frame is
        // the one on screen at the target.
        if (held && pts > ms && held->pts <= ms)
            return held;
        // Landed after the target: try again from a bit earlier.
        if (seekBack(ms, pts, attempt, step)) {
            held.reset();
            continue;
        }
        if (pts > ms - interval)
            return frame;
        held = frame;
    }
}

bool FFStreamReader::seekBack(long long targetMs, long long firstPtsMs, int &attempt, long long &stepMs)
{
    if (attempt > 3 || firstPtsMs <= targetMs || frameIntervalsMs() >= targetMs)
        return false;
    if (attempt == 1)
        stepMs = firstPtsMs - targetMs;
    long long position = targetMs - stepMs * attempt;
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
        // The seek landed at or after the boundary: move it one frame back.
        const long long interval = frameIntervalsMs();
        boundary -= interval;
        if (boundary < 0 || interval < 1)
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

void FFStreamReader::moveSelfToThread(QThread *thread)
{
    moveToThread(thread);
    if (mDemuxer)
        mDemuxer->moveToThread(thread);
    if (mDecoder)
        mDecoder->moveToThread(thread);
}

} // namespace Veloran
