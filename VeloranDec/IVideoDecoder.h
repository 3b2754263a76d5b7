#pragma once

#include "Common/BasicObject.h"
#include "FFmpegJoint.h"
#include "vrfetcher_export.h"

namespace Veloran {

// A decoder of one stream: packets in, frames out.
class VRFETCHER_EXPORT IVideoDecoder : public BasicObject
{
    Q_OBJECT
public:
    explicit IVideoDecoder(QObject *parent = nullptr) : BasicObject(parent) {}
    ~IVideoDecoder() override = default;

    // `threads` below 0 picks a count by itself.
    virtual bool open(const AVStream *stream, int threads) = 0;
    virtual void close() = 0;
    // A null packet drains the decoder.
    virtual bool sendPacket(const AVPacketPtr &pkt) = 0;
    // True after a successful send until a receive finds nothing.
    virtual bool couldRecv() = 0;
    virtual AVFramePtr recvFrame() = 0;
    virtual void clearBuffer() = 0;
    // Hardware decoding contexts; null where there is no hardware decoding.
    virtual AVBufferRef *hwFramesContext() = 0;
    virtual void *hwDevice() = 0;
};

} // namespace Veloran
