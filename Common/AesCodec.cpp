#include "AesCodec.h"

#include "VeloranBaseEntry.h"

#include <QTextCodec>

#include <openssl/evp.h>
#include <openssl/rand.h>

#include <memory>

namespace Veloran {

namespace {

constexpr int kBlock = 16;
constexpr int kSaltSize = 8;
constexpr int kPbkdf2Iterations = 10000;
const QByteArray kSaltedMagic = QByteArrayLiteral("Salted__");

using CipherContext = std::unique_ptr<EVP_CIPHER_CTX, decltype(&EVP_CIPHER_CTX_free)>;

// OpenSSL's cipher for a mode (rows) and a key size of 16, 24 or 32 bytes (columns).
const EVP_CIPHER *evpCipher(AesCodec::Mode mode, int keySize)
{
    using Maker = const EVP_CIPHER *(*)();
    static const Maker kTable[][3] = {
        {EVP_aes_128_ecb, EVP_aes_192_ecb, EVP_aes_256_ecb},
        {EVP_aes_128_cbc, EVP_aes_192_cbc, EVP_aes_256_cbc},
        {EVP_aes_128_cfb128, EVP_aes_192_cfb128, EVP_aes_256_cfb128},
        {EVP_aes_128_ofb, EVP_aes_192_ofb, EVP_aes_256_ofb},
        {EVP_aes_128_ctr, EVP_aes_192_ctr, EVP_aes_256_ctr},
    };
    return kTable[int(mode)][keySize / 8 - 2]();
}

bool isBlockMode(AesCodec::Mode mode)
{
    return mode == AesCodec::Mode::ECB || mode == AesCodec::Mode::CBC;
}

// The n padding bytes of a padding scheme. (OpenSSL pads with PKCS7 only, so the
// block modes run with its padding off and these are added and checked here.)
QByteArray paddingBytes(AesCodec::Padding padding, int n)
{
    QByteArray bytes(n, '\0');
    if (n == 0)
        return bytes;
    switch (padding) {
    case AesCodec::Padding::PKCS7: bytes.fill(char(n)); break;
    case AesCodec::Padding::ISO7816: bytes[0] = char(0x80); break;
    case AesCodec::Padding::ANSIX923: bytes[n - 1] = char(n); break;
    case AesCodec::Padding::None:
    case AesCodec::Padding::Zero: break;
    }
    return bytes;
}

// How many padding bytes to add to `size` bytes of input.
int paddingToAdd(AesCodec::Padding padding, int size)
{
    const int rest = kBlock - size % kBlock;
    switch (padding) {
    case AesCodec::Padding::None: return 0;
    case AesCodec::Padding::Zero: return rest % kBlock;
    default: return rest;
    }
}

// How many bytes at the end of `data` claim to be padding (checked by the caller).
int paddingFound(AesCodec::Padding padding, const QByteArray &data)
{
    int zeros = 0;
    while (zeros < data.size() && data[data.size() - 1 - zeros] == '\0')
        ++zeros;
    switch (padding) {
    case AesCodec::Padding::None: return 0;
    case AesCodec::Padding::Zero: return zeros;
    case AesCodec::Padding::ISO7816: return zeros + 1;
    default: return data.isEmpty() ? 1 : uchar(data.back());
    }
}

bool stripPadding(AesCodec::Padding padding, QByteArray &data)
{
    const int n = paddingFound(padding, data);
    const bool bounded = padding == AesCodec::Padding::None || padding == AesCodec::Padding::Zero
                         || (n >= 1 && n <= kBlock);
    if (!bounded || n > data.size() || data.right(n) != paddingBytes(padding, n))
        return false;
    data.chop(n);
    return true;
}

// Key and IV of the openssl command line's -pbkdf2 -md sha256 for AES-256-CBC.
bool deriveKeyAndIv(const QByteArray &passphrase, const QByteArray &salt, QByteArray &key, QByteArray &iv)
{
    QByteArray both(32 + kBlock, '\0');
    if (PKCS5_PBKDF2_HMAC(passphrase.constData(), passphrase.size(), reinterpret_cast<const uchar *>(salt.constData()),
                          salt.size(), kPbkdf2Iterations, EVP_sha256(), both.size(),
                          reinterpret_cast<uchar *>(both.data()))
        != 1) {
        VR_LOG << "AesCodec: key derivation failed";
        return false;
    }
    key = both.left(32);
    iv = both.mid(32);
    return true;
}

} // namespace

AesCodec::AesCodec(const QByteArray &key, Mode mode, Padding padding)
    : mKey(key)
    , mMode(mode)
    , mPadding(padding)
{
}

bool AesCodec::isValid() const
{
    return mKey.size() == 16 || mKey.size() == 24 || mKey.size() == 32;
}

QByteArray AesCodec::encrypt(const QByteArray &plain, const QByteArray &iv) const
{
    if (!isBlockMode(mMode))
        return crypt(plain, iv, true);
    return crypt(plain + paddingBytes(mPadding, paddingToAdd(mPadding, plain.size())), iv, true);
}

QByteArray AesCodec::decrypt(const QByteArray &cipher, const QByteArray &iv) const
{
    QByteArray plain = crypt(cipher, iv, false);
    if (isBlockMode(mMode) && !plain.isEmpty() && !stripPadding(mPadding, plain)) {
        VR_LOG << "AesCodec: the padding does not check out";
        return {};
    }
    return plain;
}

QByteArray AesCodec::crypt(const QByteArray &input, const QByteArray &iv, bool encrypting) const
{
    if (!isValid()) {
        VR_LOG << "AesCodec: a key of " << mKey.size() << " bytes; 16, 24 or 32 expected";
        return {};
    }
    if (mMode != Mode::ECB && iv.size() != kBlock) {
        VR_LOG << "AesCodec: an IV of " << iv.size() << " bytes; 16 expected";
        return {};
    }
    if (isBlockMode(mMode) && input.size() % kBlock != 0) {
        VR_LOG << "AesCodec: " << input.size() << " bytes are not whole 16-byte blocks";
        return {};
    }
    CipherContext context(EVP_CIPHER_CTX_new(), &EVP_CIPHER_CTX_free);
    QByteArray output(input.size() + kBlock, '\0');
    auto *out = reinterpret_cast<uchar *>(output.data());
    int written = 0;
    int finished = 0;
    const bool ok = context
                    && EVP_CipherInit_ex(context.get(), evpCipher(mMode, mKey.size()), nullptr,
                                         reinterpret_cast<const uchar *>(mKey.constData()),
                                         mMode == Mode::ECB ? nullptr : reinterpret_cast<const uchar *>(iv.constData()),
                                         encrypting ? 1 : 0)
                           == 1
                    && EVP_CIPHER_CTX_set_padding(context.get(), 0) == 1
                    && EVP_CipherUpdate(context.get(), out, &written, reinterpret_cast<const uchar *>(input.constData()),
                                        input.size())
                           == 1
                    && EVP_CipherFinal_ex(context.get(), out + written, &finished) == 1;
    if (!ok) {
        VR_LOG << "AesCodec: OpenSSL failed to " << (encrypting ? "encrypt" : "decrypt");
        return {};
    }
    output.truncate(written + finished);
    return output;
}

QString AesCodec::encryptString(const QString &text, const QString &passphrase)
{
    QByteArray salt(kSaltSize, '\0');
    if (RAND_bytes(reinterpret_cast<uchar *>(salt.data()), salt.size()) != 1) {
        VR_LOG << "AesCodec: no random salt";
        return {};
    }
    QByteArray key, iv;
    if (!deriveKeyAndIv(passphrase.toUtf8(), salt, key, iv))
        return {};
    const QByteArray cipher = AesCodec(key).encrypt(text.toUtf8(), iv);
    return QString::fromLatin1((kSaltedMagic + salt + cipher).toBase64());
}

QString AesCodec::decryptString(const QString &base64, const QString &passphrase)
{
    const QByteArray::FromBase64Result decoded =
        QByteArray::fromBase64Encoding(base64.trimmed().toLatin1(), QByteArray::AbortOnBase64DecodingErrors);
    const QByteArray &data = *decoded;
    const int header = kSaltedMagic.size() + kSaltSize;
    if (!decoded || !data.startsWith(kSaltedMagic) || data.size() < header + kBlock) {
        VR_LOG << "AesCodec: not a salted Base64 cipher text";
        return {};
    }
    QByteArray key, iv;
    if (!deriveKeyAndIv(passphrase.toUtf8(), data.mid(kSaltedMagic.size(), kSaltSize), key, iv))
        return {};
    const QByteArray plain = AesCodec(key).decrypt(data.mid(header), iv);
    // A wrong passphrase passes the padding check now and then; its text is not UTF-8.
    QTextCodec::ConverterState state;
    const QString text = QTextCodec::codecForMib(106)->toUnicode(plain.constData(), plain.size(), &state);
    if (state.invalidChars > 0) {
        VR_LOG << "AesCodec: the decrypted text is not UTF-8";
        return {};
    }
    return text;
}

} // namespace Veloran
