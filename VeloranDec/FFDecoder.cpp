#include "FFDecoder.h"

#include "FFmpegJoint.h"
#include "VeloranBaseEntry.h"

extern "C" {
#include <libavutil/mem.h>
}

#include <thread>

namespace Veloran {

namespace {

// Limits against headers that claim gigantic pictures or audio frames: the
// decoder refuses such data instead of allocating for it. 16384 x 16384 is far
// beyond any camera or screen recording.
void limitFrameSizes(AVCodecContext *context)
{
    context->max_pixels = 16384LL * 16384LL;
    context->max_samples = 1LL << 22;
}

int defaultThreadCount()
{
    return static_cast<int>((std::thread::hardware_concurrency() + 1) / 2);
}

// Still pictures gain nothing from frame threads and some decoders misbehave with them.
bool isStillPicture(const AVStream *stream)
{
    if (stream->disposition & AV_DISPOSITION_ATTACHED_PIC)
        return true;
    switch (stream->codecpar->codec_id) {
    case AV_CODEC_ID_PNG:
    case AV_CODEC_ID_JPEG2000:
    case AV_CODEC_ID_TIFF:
    case AV_CODEC_ID_WEBP:
        return true;
    default:
        return false;
    }
}

// VP8/VP9 go to libvpx, which also decodes the alpha side channel of WebM files.
const AVCodec *chooseDecoder(AVCodecID codecId)
{
    const AVCodec *decoder = nullptr;
    if (codecId == AV_CODEC_ID_VP8)
        decoder = avcodec_find_decoder_by_name("libvpx");
    else if (codecId == AV_CODEC_ID_VP9)
        decoder = avcodec_find_decoder_by_name("libvpx-vp9");
    if (!decoder)
        decoder = avcodec_find_decoder(codecId);
    return decoder;
}

void prepareSubtitleContext(AVCodecContext *context, AVRational timeBase, const char *charset, int mode)
{
    context->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    context->codec_type = AVMEDIA_TYPE_SUBTITLE;
    context->time_base = timeBase;
    av_freep(&context->sub_charenc);
    context->sub_charenc = av_strdup(charset);
    context->sub_charenc_mode = mode;
}

} // namespace

FFDecoder::FFDecoder(QObject *parent)
    : IVideoDecoder(parent)
{
}

FFDecoder::~FFDecoder() = default;

bool FFDecoder::open(const AVStream *stream, int threads)
{
    assertOwnThread();
    if (!stream || !stream->codecpar)
        return false;
    const AVCodecParameters *par = stream->codecpar;

    const AVCodec *decoder = chooseDecoder(par->codec_id);
    if (!newContext(decoder))
        return false;

    if (threads >= 0)
        mCodecCtx->thread_count = threads;
    else
        mCodecCtx->thread_count = isStillPicture(stream) ? 1 : defaultThreadCount();

    if (par->codec_type == AVMEDIA_TYPE_SUBTITLE)
        prepareSubtitleContext(mCodecCtx.data(), stream->time_base, "UTF-8", FF_SUB_CHARENC_MODE_PRE_DECODER);
    // Lets the decoder move the times of frames whose first samples it drops (the
    // encoder delay of MP3 and AAC) along with the samples.
    mCodecCtx->pkt_timebase = stream->time_base;

    const bool opened = openContext(decoder, par);
    if (par->codec_type == AVMEDIA_TYPE_VIDEO)
        mCodecCtx->time_base = stream->time_base;
    return opened;
}

bool FFDecoder::newContext(const AVCodec *decoder)
{
    if (!decoder) {
        VR_LOG << "---player--- avcodec_find_decoder failed";
        return false;
    }
    AVCodecContextPtr context = makeAVCodecContextPtr(avcodec_alloc_context3(decoder));
    if (!context)
        return false;
    mCodecCtx = context;
    limitFrameSizes(mCodecCtx.data());
    return true;
}

bool FFDecoder::openContext(const AVCodec *decoder, const AVCodecParameters *parameters)
{
    // Both steps report under one text; callers' log filters know it by that name.
    logIf_FF_Error(avcodec_parameters_to_context(mCodecCtx.data(), parameters), "avcodec_parameters_to_context error.");
    const int result = avcodec_open2(mCodecCtx.data(), decoder, nullptr);
    logIf_FF_Error(result, "avcodec_parameters_to_context error.");
    return result == 0;
}

void FFDecoder::close()
{
    assertOwnThread();
    mCodecCtx.reset();
}

FFDecoder::Step FFDecoder::send(const AVPacketPtr &pkt)
{
    assertOwnThread();
    if (!mCodecCtx)
        return Step::Error;
    const int result = avcodec_send_packet(mCodecCtx.data(), pkt.data());
    // A drained decoder still hands out the frames it holds: receiving goes on.
    if (result >= 0 || result == AVERROR_EOF) {
        mCouldRecv = true;
        return result == AVERROR_EOF ? Step::End : Step::Accepted;
    }
    mHasError = true;
    logIf_FF_Error(result, "avcodec_send_packet error.");
    return Step::Error;
}

bool FFDecoder::sendPacket(const AVPacketPtr &pkt)
{
    const Step step = send(pkt);
    return step == Step::Accepted || step == Step::End;
}

bool FFDecoder::couldRecv()
{
    return mCouldRecv;
}

FFDecoder::Received FFDecoder::receive()
{
    assertOwnThread();
    AVFramePtr frame = mCodecCtx ? makeAVFramePtr(av_frame_alloc()) : AVFramePtr();
    if (!frame)
        return {Step::Error, {}};
    const int result = avcodec_receive_frame(mCodecCtx.data(), frame.data());
    if (result >= 0)
        return {Step::Frame, std::move(frame)};
    mCouldRecv = false;
    if (result == AVERROR(EAGAIN))
        return {Step::NeedsInput, {}};
    if (result == AVERROR_EOF)
        return {Step::End, {}};
    mHasError = true;
    logIf_FF_Error(result, "avcodec_receive_frame error.");
    return {Step::Error, {}};
}

AVFramePtr FFDecoder::recvFrame()
{
    return receive().frame;
}

bool FFDecoder::hasError() const
{
    return mHasError;
}

void FFDecoder::clearBuffer()
{
    assertOwnThread();
    if (mCodecCtx)
        avcodec_flush_buffers(mCodecCtx.data());
}

AVBufferRef *FFDecoder::hwFramesContext()
{
    return nullptr;
}

void *FFDecoder::hwDevice()
{
    return nullptr;
}

void FFDecoder::setSkipNonReference(bool skip)
{
    if (mCodecCtx)
        mCodecCtx->skip_frame = skip ? AVDISCARD_NONREF : AVDISCARD_DEFAULT;
}

AVCodecContextPtr FFDecoder::codecContext() const
{
    return mCodecCtx;
}

QString FFDecoder::codecCtxCharEnc() const
{
    if (!mCodecCtx || !mCodecCtx->sub_charenc)
        return {};
    return QString::fromUtf8(mCodecCtx->sub_charenc);
}

bool FFDecoder::decodeSubtitleOnce(const AVPacketPtr &pkt, AVSubtitle *sub, int *result)
{
    // A context whose reopen failed has a codec but no internals, which FFmpeg's
    // subtitle decoding would dereference.
    if (!avcodec_is_open(mCodecCtx.data())) {
        *result = AVERROR(EINVAL);
        return false;
    }
    int gotSubtitle = 0;
    *result = avcodec_decode_subtitle2(mCodecCtx.data(), sub, &gotSubtitle, pkt.data());
    if (*result < 0)
        return false;
    sub->end_display_time =
        static_cast<uint32_t>(av_rescale_q(pkt->duration, mCodecCtx->time_base, AVRational {1, 1000}));
    return true;
}

bool FFDecoder::decodeSubtitle(const AVPacketPtr &pkt, AVSubtitle *sub)
{
    if (!mCodecCtx || !pkt || !sub)
        return false;
    int result = 0;
    if (decodeSubtitleOnce(pkt, sub, &result))
        return true;
    // Text that is not UTF-8 is most often a Chinese legacy code page; after that
    // the bytes go through unconverted. A failed reopen leaves a context that
    // refuses to decode, so the next attempt fails and falls through.
    if (mCodecCtx->sub_charenc_mode != FF_SUB_CHARENC_MODE_IGNORE) {
        openSubCodecAgain("GBK", FF_SUB_CHARENC_MODE_AUTOMATIC);
        if (decodeSubtitleOnce(pkt, sub, &result))
            return true;
    }
    if (mCodecCtx->sub_charenc_mode != FF_SUB_CHARENC_MODE_IGNORE) {
        openSubCodecAgain("UTF-8", FF_SUB_CHARENC_MODE_IGNORE);
        if (decodeSubtitleOnce(pkt, sub, &result))
            return true;
    }
    if (result == AVERROR(EILSEQ))
        VR_LOG << "Subtitle CharEnc not support";
    return false;
}

bool FFDecoder::openSubCodecAgain(const char *charset, int mode)
{
    if (!mCodecCtx)
        return false;
    AVCodecParametersPtr parameters = makeAVCodecParametersPtr(avcodec_parameters_alloc());
    if (!parameters)
        return false;
    if (avcodec_parameters_from_context(parameters.data(), mCodecCtx.data()) < 0)
        return false;
    const AVRational timeBase = mCodecCtx->time_base;
    const AVCodec *decoder = avcodec_find_decoder(parameters->codec_id);
    if (!newContext(decoder))
        return false;
    mCodecCtx->thread_count = defaultThreadCount();
    prepareSubtitleContext(mCodecCtx.data(), timeBase, charset, mode);
    return openContext(decoder, parameters.data());
}

} // namespace Veloran
