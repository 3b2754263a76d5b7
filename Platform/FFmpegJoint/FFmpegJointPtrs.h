#pragma once

#include <QSharedPointer>

/// \file
/// The shared-pointer types of FFmpeg objects over forward declarations: all a header
/// needs to name them. The factories that fill them are in FFmpegJoint.h.
extern "C" {
struct AVFrame;
struct AVPacket;
struct AVFormatContext;
struct AVCodecContext;
struct AVCodecParameters;
struct AVIOContext;
struct SwsContext;
struct SwrContext;
struct AVFilterGraph;
}

namespace Veloran {

using AVFramePtr = QSharedPointer<AVFrame>;                     ///< made by makeAVFramePtr()
using AVPacketPtr = QSharedPointer<AVPacket>;                   ///< made by makeAVPacketPtr()
using AVFormatContextPtr = QSharedPointer<AVFormatContext>;     ///< made by makeAVFormatContextPtr()
using AVCodecContextPtr = QSharedPointer<AVCodecContext>;       ///< made by makeAVCodecContextPtr()
using AVCodecParametersPtr = QSharedPointer<AVCodecParameters>; ///< made by makeAVCodecParametersPtr()
using AVIOContextPtr = QSharedPointer<AVIOContext>;             ///< made by makeAVIOContextPtr()
using SwsContextPtr = QSharedPointer<SwsContext>;               ///< made by makeSwsContextPtr()
using SwrContextPtr = QSharedPointer<SwrContext>;               ///< made by makeSwrContextPtr()
using AVFilterGraphPtr = QSharedPointer<AVFilterGraph>;         ///< made by makeAVFilterGraphPtr()

} // namespace Veloran
