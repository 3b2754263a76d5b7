#pragma once

#include "VeloranDec/IVideoDecoder.h"
#include "vrfetcher_export.h"

#include <QString>

namespace Veloran {

// FFmpeg's software decoder for one stream, video, audio or subtitle. Subtitle
// packets whose text is not UTF-8 are retried as GBK and then passed through.
class VRFETCHER_EXPORT FFDecoder : public IVideoDecoder
{
    Q_OBJECT
public:
    explicit FFDecoder(QObject *parent = nullptr);
    ~FFDecoder() override;

    bool open(const AVStream *stream, int threads) override;
    void close() override;
    bool sendPacket(const AVPacketPtr &pkt) override;
    bool couldRecv() override;
    AVFramePtr recvFrame() override;
    void clearBuffer() override;
    AVBufferRef *hwFramesContext() override;
    void *hwDevice() override;

    AVCodecContextPtr codecContext() const;
    // The subtitle character set the context was opened with; empty otherwise.
    QString codecCtxCharEnc() const;
    // Decodes one subtitle packet; `sub` is filled on success (free it with
    // avsubtitle_free).
    bool decodeSubtitle(const AVPacketPtr &pkt, AVSubtitle *sub);
    // Replaces the subtitle decoder with one that converts from `charset` in
    // `mode` (FF_SUB_CHARENC_MODE_*).
    bool openSubCodecAgain(const char *charset, int mode);

private:
    // Copies the parameters into the context and opens it; true when opened.
    bool openContext(const AVCodec *decoder, const AVCodecParameters *parameters);
    bool decodeSubtitleOnce(const AVPacketPtr &pkt, AVSubtitle *sub, int *result);

    AVCodecContextPtr mCodecCtx;
    bool mHasError = false;
    bool mCouldRecv = false;
};

} // namespace Veloran
