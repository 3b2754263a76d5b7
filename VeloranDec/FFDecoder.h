#pragma once

#include "VeloranDec/IVideoDecoder.h"
#include "vrfetcher_export.h"

#include <QString>

struct AVCodec;
struct AVSubtitle;

namespace Veloran {

/// FFmpeg's software decoder for one stream, video, audio or subtitle. Subtitle
/// packets whose text is not UTF-8 are retried as GBK and then passed through.
/// VP8 and VP9 go to libvpx when present (it also decodes WebM alpha).
///
/// Used from the thread it lives in (open, send, receive and flush check this in
/// Debug builds). FFmpeg errors are logged and give false or a null frame. Data
/// claiming pictures over 16384 x 16384 or audio frames over 4M samples is
/// refused rather than allocated for.
class VRFETCHER_EXPORT FFDecoder : public IVideoDecoder
{
    Q_OBJECT
public:
    /// What one send or receive came to, read from FFmpeg's result code.
    enum class Step {
        Frame, ///< receive: a frame came out; ask again for more
        Accepted, ///< send: the packet was taken; receive its frames
        NeedsInput, ///< receive: nothing more until the next packet is sent
        End, ///< the decoder was drained: no frame will come before a flush
        Error, ///< the decoder refused (logged); for send, also while frames wait
    };
    Q_ENUM(Step)
    /// A receive: the step, and the frame when the step is Frame.
    struct Received
    {
        Step step;
        AVFramePtr frame;
    };

    /// A closed decoder.
    explicit FFDecoder(QObject *parent = nullptr);
    ~FFDecoder() override;

    /// Opens the stream's decoder. `threads` below 0 means half the cores, or one
    /// thread for still pictures. False, with a log line, when no decoder exists
    /// or it does not open.
    bool open(const AVStream *stream, int threads) override;
    void close() override;
    /// True when send() took the packet (Accepted) or the decoder is already
    /// drained (End); false when it was refused.
    bool sendPacket(const AVPacketPtr &pkt) override;
    bool couldRecv() override;
    /// The frame of receive(); null for every other step.
    AVFramePtr recvFrame() override;
    void clearBuffer() override;
    AVBufferRef *hwFramesContext() override;
    void *hwDevice() override;

    /// Whether the next packets' frames that no other frame refers to are dropped
    /// undecoded (AVDISCARD_NONREF); off after open().
    void setSkipNonReference(bool skip);
    /// Feeds one packet, a null one drains: Accepted, End when the decoder is
    /// already drained (the packet is not taken; what it holds can still be
    /// received), Error when refused or not open (logged when refused).
    Step send(const AVPacketPtr &pkt);
    /// Takes the next frame: Frame with it, NeedsInput, End after a drain gave its
    /// last frame, Error when the decoder failed (logged) or is not open.
    Received receive();
    /// Whether any send or receive was refused since construction.
    bool hasError() const;
    /// The codec context, shared; null before open() and after close().
    AVCodecContextPtr codecContext() const;
    /// The subtitle character set the context was opened with; empty otherwise.
    QString codecCtxCharEnc() const;
    /// Decodes one subtitle packet; `sub` is filled on success (free it with
    /// avsubtitle_free), its end_display_time set from the packet's duration in ms.
    /// False for a null argument, when nothing is open and when every character
    /// set failed ("Subtitle CharEnc not support" is logged for undecodable text).
    bool decodeSubtitle(const AVPacketPtr &pkt, AVSubtitle *sub);
    /// Replaces the subtitle decoder with one that converts from `charset` in
    /// `mode` (FF_SUB_CHARENC_MODE_*). False when nothing is open or the new one
    /// does not open; it then refuses to decode.
    bool openSubCodecAgain(const char *charset, int mode);

private:
    // Replaces the context with a fresh one for this decoder, within the size
    // limits; false (context kept) without a decoder or memory.
    bool newContext(const AVCodec *decoder);
    // Copies the parameters into the context and opens it; true when opened.
    bool openContext(const AVCodec *decoder, const AVCodecParameters *parameters);
    bool decodeSubtitleOnce(const AVPacketPtr &pkt, AVSubtitle *sub, int *result);

    AVCodecContextPtr mCodecCtx;
    bool mHasError = false;
    bool mCouldRecv = false;
};

} // namespace Veloran
