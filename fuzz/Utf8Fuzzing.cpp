#include "FuzzCheck.h"
#include "FuzzTargets.h"

#include "Common/Helpers.h"

#include <QByteArray>
#include <QString>

namespace Veloran::Fuzz {

namespace {

// Independent judgement: Qt's decoder replaces every malformed sequence (stray
// continuation bytes, overlong forms, surrogates, code points above U+10FFFF,
// truncated sequences), so the text is valid exactly when decoding and encoding
// again gives back the same bytes. Qt drops a byte order mark at the very start,
// so a plain first byte goes in front.
bool qtAcceptsUtf8(const QByteArray &bytes)
{
    const QByteArray text = 'x' + bytes;
    return QString::fromUtf8(text).toUtf8() == text;
}

} // namespace

void fuzzUtf8(const uint8_t *data, size_t size)
{
    // isUtf8String reads up to the terminating NUL: compare on that prefix.
    QByteArray bytes(reinterpret_cast<const char *>(data), static_cast<int>(size));
    const int nul = bytes.indexOf('\0');
    if (nul >= 0)
        bytes.truncate(nul);
    const bool valid = isUtf8String(bytes.constData());
    VR_FUZZ_CHECK(valid == qtAcceptsUtf8(bytes), "isUtf8String agrees with Qt's UTF-8 decoder");
}

} // namespace Veloran::Fuzz
