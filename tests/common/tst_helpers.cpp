#include "TestMedia.h"

#include "Common/GpuModel.h"
#include "Common/Helpers.h"

#include <QDir>
#include <QFile>
#include <QRandomGenerator>
#include <QRegularExpression>
#include <QSet>
#include <QTemporaryDir>
#include <QtTest>

#include <climits>

using namespace Veloran;

namespace {

bool utf8(const QByteArray &bytes)
{
    return isUtf8String(bytes.constData());
}

// What Qt's own decoder says: valid UTF-8 survives decoding and encoding again
// unchanged, anything invalid comes back with replacement characters. The leading
// 'a' keeps Qt from swallowing a byte order mark at the start.
bool roundTripsThroughQString(const QByteArray &bytes)
{
    const QByteArray text = 'a' + bytes;
    return QString::fromUtf8(text).toUtf8() == text;
}

QByteArray randomBytes(QRandomGenerator &random)
{
    // Bytes at the edges of the UTF-8 ranges, so that near-misses come up often.
    static const QByteArray interesting("\x41\x7f\x80\x8f\x90\x9f\xa0\xbf\xc0\xc1\xc2\xdf"
                                        "\xe0\xe1\xec\xed\xee\xef\xf0\xf1\xf3\xf4\xf5\xf7\xf8\xfe\xff");
    QByteArray bytes;
    const int length = random.bounded(1, 9);
    for (int i = 0; i < length; ++i) {
        if (random.bounded(3) == 0)
            bytes.append(char(random.bounded(1, 256))); // never NUL: it ends the string
        else
            bytes.append(interesting.at(random.bounded(interesting.size())));
    }
    return bytes;
}

QByteArray validTextWithOneByteChanged(QRandomGenerator &random)
{
    QVector<uint> codePoints;
    const int count = random.bounded(1, 5);
    for (int i = 0; i < count; ++i) {
        uint cp = random.bounded(1u, 0x110000u);
        if (cp >= 0xD800 && cp <= 0xDFFF)
            cp = 0x10000 + cp; // no surrogates in the source text
        codePoints.append(cp);
    }
    QByteArray bytes = QString::fromUcs4(codePoints.constData(), codePoints.size()).toUtf8();
    bytes[random.bounded(bytes.size())] = char(random.bounded(1, 256));
    return bytes;
}

} // namespace

class TstHelpers : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void nearestValuePrefersTheEarliestOnTies()
    {
        QCOMPARE(getNearestValue(QList<int>{4, 6}, 5), 4);
        QCOMPARE(getNearestValue(QList<int>{6, 4}, 5), 6);
        QCOMPARE(getNearestValue(QList<int>{10, 7, 3, 7}, 6), 7);
        QCOMPARE(getNearestValue(QList<int>{1, 9, 2}, 100), 9);
        QCOMPARE(getNearestValue(QList<int>{-8, -2}, -4), -2);
        QCOMPARE(getNearestValue(QList<int>{}, 42), 42);

        QCOMPARE(getNearestValue(QList<double>{0.5, 1.5}, 1.0), 0.5);
        QCOMPARE(getNearestValue(QList<double>{1.5, 0.5}, 1.0), 1.5);
        QCOMPARE(getNearestValue(QList<double>{0.1, 0.9, 0.45}, 0.5), 0.45);
        QCOMPARE(getNearestValue(QList<double>{}, 2.5), 2.5);

        QCOMPARE(getNearestValue(QList<long long>{40000000000LL, 40000000002LL}, 40000000001LL), 40000000000LL);
        QCOMPARE(getNearestValue(QList<long long>{}, -7LL), -7LL);
    }

    void nearestValueCopesWithExtremeIntegers()
    {
        // Distances beyond the signed range must not overflow.
        QCOMPARE(getNearestValue(QList<int>{INT_MIN, 1}, 0), 1);
        QCOMPARE(getNearestValue(QList<int>{INT_MAX, INT_MIN}, INT_MIN + 1), INT_MIN);
        QCOMPARE(getNearestValue(QList<int>{INT_MIN, INT_MAX}, 0), INT_MAX); // 2^31 away vs 2^31 - 1
        QCOMPARE(getNearestValue(QList<long long>{LLONG_MAX, -5}, LLONG_MIN), -5LL);
    }

    void utf8ValidationIsStrict()
    {
        QVERIFY(utf8(""));
        QVERIFY(utf8("plain ascii \x7f"));
        QVERIFY(utf8("\xc2\x80"));             // U+0080, smallest 2-byte
        QVERIFY(utf8("\xdf\xbf"));             // U+07FF
        QVERIFY(utf8("\xe0\xa0\x80"));         // U+0800, smallest 3-byte
        QVERIFY(utf8("\xed\x9f\xbf"));         // U+D7FF, just below the surrogates
        QVERIFY(utf8("\xee\x80\x80"));         // U+E000, just above them
        QVERIFY(utf8("\xef\xbf\xbf"));         // U+FFFF
        QVERIFY(utf8("\xf0\x9f\x98\x80"));     // U+1F600
        QVERIFY(utf8("\xf4\x8f\xbf\xbf"));     // U+10FFFF, the last code point
        QVERIFY(utf8("Gr\xc3\xbc\xc3\x9f" "e \xe2\x82\xac"));

        QVERIFY(!utf8("\xc0\xaf"));             // overlong '/'
        QVERIFY(!utf8("\xc1\xbf"));             // overlong, C1 never valid
        QVERIFY(!utf8("\xe0\x9f\xbf"));         // overlong 3-byte form of U+07FF
        QVERIFY(!utf8("\xf0\x8f\xbf\xbf"));     // overlong 4-byte form of U+FFFF
        QVERIFY(!utf8("\xed\xa0\x80"));         // surrogate U+D800
        QVERIFY(!utf8("\xed\xbf\xbf"));         // surrogate U+DFFF
        QVERIFY(!utf8("\xf4\x90\x80\x80"));     // U+110000, above the last code point
        QVERIFY(!utf8("\xf5\x80\x80\x80"));
        QVERIFY(!utf8("\xff"));
        QVERIFY(!utf8("\x80"));                 // stray continuation byte
        QVERIFY(!utf8("ok\xbf"));
        QVERIFY(!utf8("\xc3\x28"));             // second byte is not a continuation

        // Truncated sequences, at the end and before more text.
        QVERIFY(!utf8("\xc3"));
        QVERIFY(!utf8("\xe2\x82"));
        QVERIFY(!utf8("\xf0\x9f\x98"));
        QVERIFY(!utf8("abc\xf0\x9f"));
        QVERIFY(!utf8("\xe2\x82" "abc"));

        // One bad sequence anywhere spoils the whole string.
        QVERIFY(!utf8("\xf0\x9f\x98\x80 fine \xed\xa0\x80 fine"));
        QVERIFY(utf8(nullptr));
    }

    void utf8ValidationAgreesWithQtDecoder()
    {
        QRandomGenerator random(20240611);
        int valid = 0;
        int invalid = 0;
        for (int i = 0; i < 40000; ++i) {
            const QByteArray bytes = (i % 2) ? randomBytes(random) : validTextWithOneByteChanged(random);
            const bool expected = roundTripsThroughQString(bytes);
            if (utf8(bytes) != expected)
                QFAIL(qPrintable(QStringLiteral("disagreement on %1: Qt says %2")
                                     .arg(QString::fromLatin1(bytes.toHex(' ')))
                                     .arg(expected ? "valid" : "invalid")));
            ++(expected ? valid : invalid);
        }
        // Both outcomes must be well represented for the comparison to mean anything.
        QVERIFY2(valid > 4000, qPrintable(QString::number(valid)));
        QVERIFY2(invalid > 4000, qPrintable(QString::number(invalid)));
    }

    void socialTypesMatchExactly()
    {
        for (const char *name : {"YouTube", "Instagram", "TikTok", "Facebook", "Likee", "Vimeo"})
            QVERIFY2(isSocialType(QString::fromLatin1(name)), name);
        QVERIFY(!isSocialType(QStringLiteral("youtube")));
        QVERIFY(!isSocialType(QStringLiteral("YOUTUBE")));
        QVERIFY(!isSocialType(QStringLiteral("YouTube ")));
        QVERIFY(!isSocialType(QStringLiteral("YouTub")));
        QVERIFY(!isSocialType(QString()));
        QVERIFY(!isSocialType(QStringLiteral("Twitter")));
    }

    void pathsAreJoinedWithOneSeparatorAndCleaned()
    {
        QCOMPARE(appendPath(QStringLiteral("/a/b"), QStringLiteral("c.json")), QStringLiteral("/a/b/c.json"));
        QCOMPARE(appendPath(QStringLiteral("/a/b/"), QStringLiteral("/c")), QStringLiteral("/a/b/c"));
        QCOMPARE(appendPath(QStringLiteral("/a/./b"), QStringLiteral("../c")), QStringLiteral("/a/c"));
        QCOMPARE(appendPath(QStringLiteral("rel"), QStringLiteral("x/y")), QStringLiteral("rel/x/y"));
        QCOMPARE(appendPath(QString(), QStringLiteral("x")), QStringLiteral("/x"));
        QCOMPARE(appendPath(QStringLiteral("/a"), QString()), QStringLiteral("/a"));
        // Resource paths: ":" followed by the prefix.
        QCOMPARE(appendPath(QStringLiteral(":"), QStringLiteral("fx")), QStringLiteral(":/fx"));
        QCOMPARE(appendPath(QStringLiteral(":"), QStringLiteral("/fx")), QStringLiteral(":/fx"));
    }

    void evenValuesRoundUp()
    {
        QCOMPARE(toEvenValue(0), 0);
        QCOMPARE(toEvenValue(7), 8);
        QCOMPARE(toEvenValue(8), 8);
        QCOMPARE(toEvenValue(1), 2);
        QCOMPARE(toEvenValue(-3), -2);
        QCOMPARE(toEvenValue(-4), -4);
        QCOMPARE(toEvenValue(1919), 1920);
    }

    void closestMultipleTiesGoAwayFromZero()
    {
        QCOMPARE(closestNumber(10, 4), 12);  // 8 and 12 both 2 away
        QCOMPARE(closestNumber(13, 4), 12);
        QCOMPARE(closestNumber(9, 4), 8);
        QCOMPARE(closestNumber(11, 4), 12);
        QCOMPARE(closestNumber(12, 4), 12);
        QCOMPARE(closestNumber(-10, 4), -12); // tie on the negative side
        QCOMPARE(closestNumber(-9, 4), -8);
        QCOMPARE(closestNumber(10, -4), 12);  // n * m < 0: c2 = (q - 1) * m
        QCOMPARE(closestNumber(-13, -4), -12);
        QCOMPARE(closestNumber(0, 5), 0);
        QCOMPARE(closestNumber(2, 5), 0);
        QCOMPARE(closestNumber(3, 5), 5);
    }

    void imagesAreRecognisedByContentAndGifsAreNot()
    {
        QTemporaryDir dir;
        QVERIFY(dir.isValid());
        const QString png = TestMedia::path("common-still.png");
        const QString gif = TestMedia::path("common-still.gif");
        QVERIFY(QFile::exists(png));
        QVERIFY(QFile::exists(gif));

        QVERIFY(isImage(png));
        QVERIFY(!isImage(gif));

        // The suffix does not decide.
        const QString pngNamedGif = dir.filePath("picture.gif");
        const QString gifNamedPng = dir.filePath("animation.png");
        QVERIFY(QFile::copy(png, pngNamedGif));
        QVERIFY(QFile::copy(gif, gifNamedPng));
        QVERIFY(isImage(pngNamedGif));
        QVERIFY(!isImage(gifNamedPng));

        QImage picture(32, 16, QImage::Format_RGB32);
        picture.fill(Qt::darkCyan);
        const QString jpeg = dir.filePath("photo.jpg");
        QVERIFY(picture.save(jpeg, "JPG"));
        QVERIFY(isImage(jpeg));

        QFile garbage(dir.filePath("garbage.png"));
        QVERIFY(garbage.open(QIODevice::WriteOnly));
        QRandomGenerator random(7);
        for (int i = 0; i < 4096; ++i)
            garbage.putChar(char(random.bounded(256)));
        garbage.close();
        QVERIFY(!isImage(garbage.fileName()));

        QFile empty(dir.filePath("empty.png"));
        QVERIFY(empty.open(QIODevice::WriteOnly));
        empty.close();
        QVERIFY(!isImage(empty.fileName()));

        QVERIFY(!isImage(dir.filePath("missing.png")));
        QVERIFY(!isImage(dir.path()));
        QVERIFY(!isImage(TestMedia::path("sample.mp4")));
    }

    void md5IdsAreFreshLowerCaseHex()
    {
        const QRegularExpression hex(QStringLiteral("^[0-9a-f]{32}$"));
        QSet<QString> seen;
        for (int i = 0; i < 100; ++i) {
            const QString id = md5FromQUuid();
            QVERIFY2(hex.match(id).hasMatch(), qPrintable(id));
            seen.insert(id);
        }
        QCOMPARE(seen.size(), 100);
    }

    void gpuNamesComeFromTheVendorInTheText()
    {
        QVERIFY(GpuModel::gpuModelNameList().isEmpty());
        QVERIFY(GpuModel::getSpecifiedGpuModelList(QStringLiteral("NVIDIA")).isEmpty());
        QVERIFY(GpuModel::getSpecifiedGpuModelList(QStringLiteral("AMD")).isEmpty());

        // With no known models the vendor itself is the answer.
        QCOMPARE(getCodecGpuName(QStringLiteral("NVIDIA GeForce RTX 3060/PCIe/SSE2")), QStringLiteral("NVIDIA"));
        QCOMPARE(getCodecGpuName(QStringLiteral("AMD Radeon Pro 5500M")), QStringLiteral("AMD"));
        QCOMPARE(getCodecGpuName(QStringLiteral("NVIDIA Quadro beside an AMD card")), QStringLiteral("NVIDIA"));
        QCOMPARE(getCodecGpuName(QStringLiteral("Apple M1 Pro")), QString());
        QCOMPARE(getCodecGpuName(QStringLiteral("llvmpipe (LLVM 15.0.6, 256 bits) on amd64")), QString());
        QCOMPARE(getCodecGpuName(QString()), QString());
    }
};

QTEST_GUILESS_MAIN(TstHelpers)
#include "tst_helpers.moc"
