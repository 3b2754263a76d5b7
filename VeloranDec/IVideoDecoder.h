#pragma once

#include "Common/BasicObject.h"
#include "FFmpegJointPtrs.h"
#include "vrfetcher_export.h"

struct AVBufferRef;
struct AVStream;

namespace Veloran {

/// A decoder of one stream: packets in, frames out.
///
/// Used from one thread at a time, the one it lives in (see BasicObject). Failures are
/// logged and reported as false or a null frame; nothing throws.
class VRFETCHER_EXPORT IVideoDecoder : public BasicObject
{
    Q_OBJECT
public:
    /// A closed decoder.
    explicit IVideoDecoder(QObject *parent = nullptr) : BasicObject(parent) {}
    ~IVideoDecoder() override = default;

    /// Opens a decoder for `stream`, replacing any open one; false when no decoder
    /// exists or it cannot be opened. `threads` below 0 picks a count by itself.
    virtual bool open(const AVStream *stream, int threads) = 0;
    /// Releases the decoder; later calls fail until the next open().
    virtual void close() = 0;
    /// Feeds one packet; false when the decoder refuses it or is not open.
    /// A null packet drains the decoder.
    virtual bool sendPacket(const AVPacketPtr &pkt) = 0;
    /// True after a successful send until a receive finds nothing.
    virtual bool couldRecv() = 0;
    /// The next decoded frame, or null when none is ready (or on an error).
    virtual AVFramePtr recvFrame() = 0;
    /// Drops every buffered packet and frame, as after a seek.
    virtual void clearBuffer() = 0;
    /// Hardware decoding contexts; null where there is no hardware decoding.
    virtual AVBufferRef *hwFramesContext() = 0;
    /// \copydoc hwFramesContext
    virtual void *hwDevice() = 0;
};

} // namespace Veloran
