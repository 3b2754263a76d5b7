#pragma once

#include "vrfetcher_export.h"

#include <QByteArray>
#include <QString>

namespace Veloran {

/// AES (FIPS-197) with a 128-, 192- or 256-bit key in one of five chaining modes,
/// over OpenSSL. ECB and CBC pad the input to whole 16-byte blocks with the chosen
/// padding (`Padding::None` requires whole blocks); CFB (CFB-128), OFB and CTR are
/// stream modes and ignore the padding. Every mode but ECB needs a 16-byte IV; for
/// CTR it is the initial counter block, incremented as a 128-bit big-endian number.
/// Failures (a key or IV of the wrong size, input that is not whole blocks where it
/// must be, padding that does not check out on decryption) give an empty result and
/// a log line. A codec is immutable and may be used from any thread.
class VRFETCHER_EXPORT AesCodec
{
public:
    enum class Mode { ECB, CBC, CFB, OFB, CTR }; ///< CFB is CFB-128
    /// PKCS7: n bytes of value n. Zero: zeros, none when the input is whole blocks;
    /// removal strips trailing zeros. ISO7816 (-4): 0x80 then zeros. ANSIX923: zeros
    /// then the count. All but Zero add a full block to input of whole blocks.
    enum class Padding { None, PKCS7, Zero, ISO7816, ANSIX923 };

    explicit AesCodec(const QByteArray &key, Mode mode = Mode::CBC, Padding padding = Padding::PKCS7);

    bool isValid() const; ///< the key has 16, 24 or 32 bytes

    QByteArray encrypt(const QByteArray &plain, const QByteArray &iv = {}) const;
    QByteArray decrypt(const QByteArray &cipher, const QByteArray &iv = {}) const;

    /// The UTF-8 of `text` encrypted as `openssl enc -aes-256-cbc -pbkdf2 -iter 10000
    /// -md sha256 -salt -a -A -pass pass:<passphrase>` does: "Salted__", a random
    /// 8-byte salt and the cipher text, key and IV derived with PBKDF2-HMAC-SHA256,
    /// as one line of Base64. Each call uses a new salt.
    static QString encryptString(const QString &text, const QString &passphrase);
    /// Reverses encryptString (and that openssl command); a wrong passphrase or
    /// damaged text gives an empty string.
    static QString decryptString(const QString &base64, const QString &passphrase);

private:
    QByteArray crypt(const QByteArray &input, const QByteArray &iv, bool encrypting) const;

    QByteArray mKey;
    Mode mMode;
    Padding mPadding;
};

} // namespace Veloran
