#pragma once

#include "FFmpegJointPtrs.h"
#include "ffjoint_export.h"

#include <QSharedPointer>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavfilter/avfilter.h>
#include <libavformat/avformat.h>
#include <libavutil/frame.h>
#include <libswresample/swresample.h>
#include <libswscale/swscale.h>
}

/// \file
/// FFmpeg objects live only inside the shared pointers of FFmpegJointPtrs.h. Each factory takes
/// ownership of the raw object (a null raw pointer gives a null shared pointer) and
/// frees it with FFmpeg's matching call when the last reference goes. The pointers
/// are as thread-safe as QSharedPointer; the FFmpeg objects themselves are not.
namespace Veloran {

/// Owns `frame`; freed with av_frame_free.
FFJOINT_EXPORT AVFramePtr makeAVFramePtr(AVFrame *frame);
/// Owns `packet`; freed with av_packet_free.
FFJOINT_EXPORT AVPacketPtr makeAVPacketPtr(AVPacket *packet);
/// Closes an opened input, frees an unopened context; a context that carries
/// AVFMT_FLAG_CUSTOM_IO also frees its AVIOContext and that context's buffer.
FFJOINT_EXPORT AVFormatContextPtr makeAVFormatContextPtr(AVFormatContext *context);
/// Owns `context`; freed with avcodec_free_context.
FFJOINT_EXPORT AVCodecContextPtr makeAVCodecContextPtr(AVCodecContext *context);
/// Owns `parameters`; freed with avcodec_parameters_free.
FFJOINT_EXPORT AVCodecParametersPtr makeAVCodecParametersPtr(AVCodecParameters *parameters);
/// Frees the buffer the I/O context holds at that moment (FFmpeg may have replaced
/// the one it was made with), then the context.
FFJOINT_EXPORT AVIOContextPtr makeAVIOContextPtr(AVIOContext *context);
/// Owns `context`; freed with sws_freeContext.
FFJOINT_EXPORT SwsContextPtr makeSwsContextPtr(SwsContext *context);
/// Owns `context`; freed with swr_free.
FFJOINT_EXPORT SwrContextPtr makeSwrContextPtr(SwrContext *context);
/// Owns `graph` and the filters in it; freed with avfilter_graph_free.
FFJOINT_EXPORT AVFilterGraphPtr makeAVFilterGraphPtr(AVFilterGraph *graph);

/// Opens an input the way avformat_open_input does, without its trap for owners:
/// FFmpeg frees a caller-allocated context when opening fails. On success `out`
/// holds the opened context (custom I/O, when given, is owned by it from then on);
/// on failure `out` is null and the custom I/O context is freed here. Returns
/// avformat_open_input's result. An interrupt callback, when given, is installed
/// before opening, so that it can already end a stalled open.
FFJOINT_EXPORT int openInputContext(AVFormatContextPtr &out, const char *url, AVIOContext *customIO,
                                    const AVIOInterruptCB *interrupt = nullptr);

/// Logs `text` together with FFmpeg's description of `code` when `code` is negative.
FFJOINT_EXPORT void logIf_FF_Error(int code, const char *text);

/// FFmpeg's text for an error code (a generic text for unknown codes).
FFJOINT_EXPORT QString ffErrorText(int code);

} // namespace Veloran
