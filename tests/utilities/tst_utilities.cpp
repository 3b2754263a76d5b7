#include "LogCapture.h"

#include "Common/AesCodec.h"
#include "Common/RenderGeometry.h"

#include <QProcess>
#include <QStandardPaths>
#include <QtTest>

using namespace Veloran;
using Mode = AesCodec::Mode;
using Padding = AesCodec::Padding;

Q_DECLARE_METATYPE(AesCodec::Mode)
Q_DECLARE_METATYPE(AesCodec::Padding)

namespace {

QByteArray hex(const char *text)
{
    return QByteArray::fromHex(text);
}

// NIST SP 800-38A, appendix F, its first two blocks (enough to chain): three keys, five modes.
const QByteArray kNistPlain = hex("6bc1bee22e409f96e93d7e117393172a" "ae2d8a571e03ac9c9eb76fac45af8e51");
const QByteArray kNistIv = hex("000102030405060708090a0b0c0d0e0f");
const QByteArray kNistCounter = hex("f0f1f2f3f4f5f6f7f8f9fafbfcfdfeff");
const QByteArray kKey128 = hex("2b7e151628aed2a6abf7158809cf4f3c");
const QByteArray kKey192 = hex("8e73b0f7da0e6452c810f32b809079e562f8ead2522c6b7b");
const QByteArray kKey256 = hex("603deb1015ca71be2b73aef0857d77811f352c073b6108d72d9810a30914dff4");

// The openssl command line's AES-256-CBC with PBKDF2 as the string functions use it, or "failed: ...".
QByteArray opensslEnc(bool decrypt, const QString &passphrase, const QByteArray &input)
{
    const QStringList args{"enc", "-aes-256-cbc", "-pbkdf2", "-iter", "10000", "-md", "sha256", "-a", "-A",
                           "-pass", "pass:" + passphrase, decrypt ? "-d" : "-salt"};
    QProcess openssl;
    openssl.start(QStringLiteral("openssl"), args);
    openssl.write(input);
    openssl.closeWriteChannel();
    if (!openssl.waitForFinished(30000) || openssl.exitCode() != 0)
        return "failed: " + openssl.readAllStandardError();
    return openssl.readAllStandardOutput();
}

// A point of normalised device coordinates in canvas pixels (y down).
QPointF toPixels(const RenderVertex &v, const QSizeF &canvas)
{
    return {(v.x + 1) / 2 * canvas.width(), (1 - v.y) / 2 * canvas.height()};
}

QString describe(const QVector<QPointF> &points)
{
    QStringList parts;
    for (const QPointF &p : points)
        parts << QStringLiteral("(%1,%2)").arg(p.x()).arg(p.y());
    return parts.join(' ');
}

// The four corners are where expected, within `tolerance`.
void checkCorners(const QVector<QPointF> &got, const QVector<QPointF> &expected, double tolerance)
{
    QCOMPARE(got.size(), 4);
    for (int i = 0; i < 4; ++i)
        QVERIFY2(qAbs(got[i].x() - expected[i].x()) < tolerance && qAbs(got[i].y() - expected[i].y()) < tolerance,
                 qPrintable(describe(got) + " expected " + describe(expected)));
}

} // namespace

class TestUtilities : public QObject
{
    Q_OBJECT

private slots:
    void nistVectors_data()
    {
        QTest::addColumn<Mode>("mode");
        QTest::addColumn<QByteArray>("key");
        QTest::addColumn<QByteArray>("iv");
        QTest::addColumn<QByteArray>("cipher");
        QTest::newRow("ECB-128") << Mode::ECB << kKey128 << QByteArray() << hex("3ad77bb40d7a3660a89ecaf32466ef97f5d3d58503b9699de785895a96fdbaaf");
        QTest::newRow("ECB-192") << Mode::ECB << kKey192 << QByteArray() << hex("bd334f1d6e45f25ff712a214571fa5cc974104846d0ad3ad7734ecb3ecee4eef");
        QTest::newRow("ECB-256") << Mode::ECB << kKey256 << QByteArray() << hex("f3eed1bdb5d2a03c064b5a7e3db181f8591ccb10d410ed26dc5ba74a31362870");
        QTest::newRow("CBC-128") << Mode::CBC << kKey128 << kNistIv << hex("7649abac8119b246cee98e9b12e9197d5086cb9b507219ee95db113a917678b2");
        QTest::newRow("CBC-192") << Mode::CBC << kKey192 << kNistIv << hex("4f021db243bc633d7178183a9fa071e8b4d9ada9ad7dedf4e5e738763f69145a");
        QTest::newRow("CBC-256") << Mode::CBC << kKey256 << kNistIv << hex("f58c4c04d6e5f1ba779eabfb5f7bfbd69cfc4e967edb808d679f777bc6702c7d");
        QTest::newRow("CFB128-128") << Mode::CFB << kKey128 << kNistIv << hex("3b3fd92eb72dad20333449f8e83cfb4ac8a64537a0b3a93fcde3cdad9f1ce58b");
        QTest::newRow("CFB128-192") << Mode::CFB << kKey192 << kNistIv << hex("cdc80d6fddf18cab34c25909c99a417467ce7f7f81173621961a2b70171d3d7a");
        QTest::newRow("CFB128-256") << Mode::CFB << kKey256 << kNistIv << hex("dc7e84bfda79164b7ecd8486985d386039ffed143b28b1c832113c6331e5407b");
        QTest::newRow("OFB-128") << Mode::OFB << kKey128 << kNistIv << hex("3b3fd92eb72dad20333449f8e83cfb4a7789508d16918f03f53c52dac54ed825");
        QTest::newRow("OFB-192") << Mode::OFB << kKey192 << kNistIv << hex("cdc80d6fddf18cab34c25909c99a4174fcc28b8d4c63837c09e81700c1100401");
        QTest::newRow("OFB-256") << Mode::OFB << kKey256 << kNistIv << hex("dc7e84bfda79164b7ecd8486985d38604febdc6740d20b3ac88f6ad82a4fb08d");
        QTest::newRow("CTR-128") << Mode::CTR << kKey128 << kNistCounter << hex("874d6191b620e3261bef6864990db6ce9806f66b7970fdff8617187bb9fffdff");
        QTest::newRow("CTR-192") << Mode::CTR << kKey192 << kNistCounter << hex("1abc932417521ca24f2b0459fe7e6e0b090339ec0aa6faefd5ccc2c6f4ce8e94");
        QTest::newRow("CTR-256") << Mode::CTR << kKey256 << kNistCounter << hex("601ec313775789a5b7a7f504bbf3d228f443e3ca4d62b59aca84e990cacaf5c5");
    }
    void nistVectors()
    {
        QFETCH(Mode, mode);
        QFETCH(QByteArray, key);
        QFETCH(QByteArray, iv);
        QFETCH(QByteArray, cipher);
        const AesCodec codec(key, mode, Padding::None);
        QCOMPARE(codec.encrypt(kNistPlain, iv).toHex(), cipher.toHex());
        QCOMPARE(codec.decrypt(cipher, iv).toHex(), kNistPlain.toHex());
        // The stream modes take any length: a cut text gives the cut cipher text.
        if (mode >= Mode::CFB)
            QCOMPARE(codec.encrypt(kNistPlain.left(21), iv).toHex(), cipher.left(21).toHex());
    }

    // The counter is one 128-bit big-endian number; the key stream is ECB of its values.
    void ctrCountsOver128Bits()
    {
        const QByteArray counter = hex("0000000000000000ffffffffffffffff"), next = hex("00000000000000010000000000000000");
        QCOMPARE(AesCodec(kKey128, Mode::CTR).encrypt(QByteArray(32, '\0'), counter).toHex(),
                 AesCodec(kKey128, Mode::ECB, Padding::None).encrypt(counter + next).toHex());
    }

    void paddings_data()
    {
        QTest::addColumn<Padding>("padding");
        QTest::addColumn<QByteArray>("plain");
        QTest::addColumn<QByteArray>("padded");
        const QByteArray block = "sixteen bytes!!!";
        QTest::newRow("PKCS7") << Padding::PKCS7 << QByteArray("abc") << QByteArray("abc") + QByteArray(13, 13);
        QTest::newRow("PKCS7 whole block") << Padding::PKCS7 << block << block + QByteArray(16, 16);
        QTest::newRow("PKCS7 empty") << Padding::PKCS7 << QByteArray() << QByteArray(16, 16);
        QTest::newRow("Zero") << Padding::Zero << QByteArray("abc") << QByteArray("abc") + QByteArray(13, 0);
        QTest::newRow("Zero whole block") << Padding::Zero << block << block;
        QTest::newRow("ISO7816") << Padding::ISO7816 << QByteArray("abc") << hex("61626380") + QByteArray(12, 0);
        QTest::newRow("ISO7816 whole block") << Padding::ISO7816 << block << block + hex("80") + QByteArray(15, 0);
        QTest::newRow("ANSIX923") << Padding::ANSIX923 << QByteArray("abc") << QByteArray("abc") + QByteArray(12, 0) + hex("0d");
        QTest::newRow("ANSIX923 whole block") << Padding::ANSIX923 << block << block + QByteArray(15, 0) + hex("10");
        QTest::newRow("None") << Padding::None << block + block << block + block;
    }
    void paddings()
    {
        QFETCH(Padding, padding);
        QFETCH(QByteArray, plain);
        QFETCH(QByteArray, padded);
        for (const Mode mode : {Mode::ECB, Mode::CBC}) {
            const AesCodec codec(kKey256, mode, padding);
            const QByteArray cipher = codec.encrypt(plain, kNistIv);
            // Decrypted without removing the padding: the exact padded bytes.
            QCOMPARE(AesCodec(kKey256, mode, Padding::None).decrypt(cipher, kNistIv).toHex(), padded.toHex());
            QCOMPARE(codec.decrypt(cipher, kNistIv), plain);
        }
        // The stream modes ignore the padding.
        QCOMPARE(AesCodec(kKey128, Mode::OFB, padding).encrypt(plain, kNistIv).size(), plain.size());
    }

    void badInput_data()
    {
        QTest::addColumn<QByteArray>("key");
        QTest::addColumn<Mode>("mode");
        QTest::addColumn<QByteArray>("iv");
        QTest::addColumn<QByteArray>("input");
        QTest::addColumn<QString>("log");
        const QByteArray block(16, 'x');
        QTest::newRow("short key") << kKey128.left(15) << Mode::ECB << QByteArray() << block
                                   << "AesCodec: a key of 15 bytes; 16, 24 or 32 expected";
        QTest::newRow("long key") << kKey256 + "x" << Mode::CTR << kNistIv << block
                                  << "AesCodec: a key of 33 bytes; 16, 24 or 32 expected";
        QTest::newRow("short IV") << kKey128 << Mode::CBC << kNistIv.left(8) << block
                                  << "AesCodec: an IV of 8 bytes; 16 expected";
        QTest::newRow("no counter") << kKey192 << Mode::CTR << QByteArray() << block
                                    << "AesCodec: an IV of 0 bytes; 16 expected";
        QTest::newRow("part block") << kKey128 << Mode::CBC << kNistIv << QByteArray(17, 'x')
                                    << "AesCodec: 17 bytes are not whole 16-byte blocks";
    }
    void badInput()
    {
        QFETCH(QByteArray, key);
        QFETCH(Mode, mode);
        QFETCH(QByteArray, iv);
        QFETCH(QByteArray, input);
        QFETCH(QString, log);
        const AesCodec codec(key, mode, Padding::None);
        QCOMPARE(codec.isValid(), !log.contains("key"));
        LogCapture capture;
        QVERIFY(codec.encrypt(input, iv).isEmpty());
        QVERIFY(codec.decrypt(input, iv).isEmpty());
        QCOMPARE(capture.recordTexts(), QStringList({log, log}));
    }

    void badPadding_data()
    {
        QTest::addColumn<Padding>("padding");
        QTest::addColumn<QByteArray>("lastBlock");
        QTest::newRow("PKCS7 count 0") << Padding::PKCS7 << QByteArray(15, 'a') + hex("00");
        QTest::newRow("PKCS7 count 17") << Padding::PKCS7 << QByteArray(15, 'a') + hex("11");
        QTest::newRow("PKCS7 mixed") << Padding::PKCS7 << QByteArray(13, 'a') + hex("020303");
        QTest::newRow("ANSIX923 count 17") << Padding::ANSIX923 << QByteArray(15, 'a') + hex("11");
        QTest::newRow("ANSIX923 not zeros") << Padding::ANSIX923 << QByteArray(13, 'a') + hex("010003");
        QTest::newRow("ISO7816 no marker") << Padding::ISO7816 << QByteArray(15, 'a') + hex("00");
        QTest::newRow("ISO7816 all zeros") << Padding::ISO7816 << QByteArray(16, 0);
    }
    void badPadding()
    {
        QFETCH(Padding, padding);
        QFETCH(QByteArray, lastBlock);
        const QByteArray cipher = AesCodec(kKey128, Mode::CBC, Padding::None).encrypt(QByteArray(16, 'p') + lastBlock, kNistIv);
        LogCapture capture;
        QVERIFY(AesCodec(kKey128, Mode::CBC, padding).decrypt(cipher, kNistIv).isEmpty());
        QCOMPARE(capture.recordTexts(), QStringList{"AesCodec: the padding does not check out"});
    }

    void stringsWithOpensslCli_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("passphrase");
        QTest::newRow("empty") << QString() << "secret";
        QTest::newRow("short") << "hello" << "pass word";
        QTest::newRow("unicode") << QString::fromUtf8("Grüße — 世界\nsecond line, long enough for several blocks")
                                 << "!#%&()*+,-./:;<=>?@[]^_{|}~";
    }
    void stringsWithOpensslCli()
    {
        QFETCH(QString, text);
        QFETCH(QString, passphrase);
        if (QStandardPaths::findExecutable(QStringLiteral("openssl")).isEmpty())
            QSKIP("the openssl command line is not installed");
        const QString ours = AesCodec::encryptString(text, passphrase);
        QVERIFY(ours != AesCodec::encryptString(text, passphrase)); // a new salt each time
        QCOMPARE(QString::fromUtf8(opensslEnc(true, passphrase, ours.toLatin1() + '\n')), text); // -A: one line
        const QByteArray theirs = opensslEnc(false, passphrase, text.toUtf8());
        QVERIFY2(theirs.startsWith("U2FsdGVkX1"), theirs.constData()); // Base64 of "Salted__"
        QCOMPARE(AesCodec::decryptString(QString::fromLatin1(theirs), passphrase), text);
    }

    void stringFailures()
    {
        const QString good = AesCodec::encryptString(QStringLiteral("some text"), QStringLiteral("right"));
        QCOMPARE(AesCodec::decryptString(good, QStringLiteral("right")), QStringLiteral("some text"));
        LogCapture capture;
        for (const QString &bad : {good.left(good.size() - 4), QString(good).replace(12, 1, '*'), QString(),
                                   QStringLiteral("aGVsbG8gd29ybGQ=")})
            QVERIFY2(AesCodec::decryptString(bad, QStringLiteral("right")).isEmpty(), qPrintable(bad));
        QVERIFY(AesCodec::decryptString(good, QStringLiteral("wrong")).isEmpty());
        QCOMPARE(capture.records().size(), 5);
    }

    void displaySize_data()
    {
        QTest::addColumn<QSize>("coded");
        QTest::addColumn<double>("sampleAspect");
        QTest::addColumn<int>("rotation");
        QTest::addColumn<QSizeF>("expected");
        QTest::newRow("PAL wide") << QSize(720, 576) << 64.0 / 45 << 0 << QSizeF(1024, 576);
        QTest::newRow("no aspect") << QSize(640, 480) << 0.0 << 180 << QSizeF(640, 480);
        QTest::newRow("turned 90") << QSize(1920, 1080) << 1.0 << 90 << QSizeF(1080, 1920);
        QTest::newRow("turned 270, wide pixels") << QSize(100, 200) << 2.0 << 270 << QSizeF(200, 200);
        QTest::newRow("turned -90") << QSize(1920, 1080) << 1.0 << -90 << QSizeF(1080, 1920);
    }
    void displaySize()
    {
        QFETCH(QSize, coded);
        QFETCH(double, sampleAspect);
        QFETCH(int, rotation);
        QTEST(RenderGeometry::displaySize(coded, sampleAspect, rotation), "expected");
    }

    void cropRect_data()
    {
        QTest::addColumn<QString>("crop");
        QTest::addColumn<QRectF>("expected");
        QTest::newRow("inside") << "0.1,0.2,0.5,0.25" << QRectF(0.1, 0.2, 0.5, 0.25);
        QTest::newRow("spaces") << " 0.5, 0.5 ,0.5,0.5" << QRectF(0.5, 0.5, 0.5, 0.5);
        QTest::newRow("clamped") << "-0.5,0.5,1,1" << QRectF(0, 0.5, 0.5, 0.5);
        QTest::newRow("absent") << "" << QRectF(0, 0, 1, 1);
        QTest::newRow("three numbers") << "0,0,1" << QRectF(0, 0, 1, 1);
        QTest::newRow("not numbers") << "a,b,c,d" << QRectF(0, 0, 1, 1);
        QTest::newRow("no area") << "0.2,0.2,0,0.5" << QRectF(0, 0, 1, 1);
    }
    void cropRect()
    {
        QFETCH(QString, crop);
        QTEST(RenderGeometry::cropRect(crop), "expected");
    }

    // A 1200x900 picture's corners (TL, TR, BL, BR) on a 1600x900 canvas, in pixels.
    void quadCorners_data()
    {
        QTest::addColumn<QVariantMap>("transform");
        QTest::addColumn<QString>("fillMode");
        QTest::addColumn<QVector<QPointF>>("corners");
        const auto rect = [](double x, double y, double w, double h) {
            return QVector<QPointF>{{x, y}, {x + w, y}, {x, y + h}, {x + w, y + h}};
        };
        QTest::newRow("fit") << QVariantMap() << "aspect_fit" << rect(200, 0, 1200, 900);
        QTest::newRow("fill") << QVariantMap() << "aspect_fill" << rect(0, -150, 1600, 1200);
        QTest::newRow("stretch") << QVariantMap() << "" << rect(0, 0, 1600, 900);
        QTest::newRow("fit, left half") << QVariantMap{{"crop", "0,0,0.5,1"}} << "aspect_fit" << rect(500, 0, 600, 900);
        QTest::newRow("fill, top band") << QVariantMap{{"crop", "0,0,1,0.5"}} << "aspect_fill" << rect(-400, 0, 2400, 900);
        QTest::newRow("zoom 2") << QVariantMap{{"zoom", 2}} << "aspect_fit" << rect(-400, -450, 2400, 1800);
        QTest::newRow("zoom 0.5") << QVariantMap{{"zoom", 0.5}} << "" << rect(400, 225, 800, 450);
        QTest::newRow("offset") << QVariantMap{{"offset_x", 0.25}, {"offset_y", -0.5}} << "aspect_fit"
                                << rect(600, -450, 1200, 900);
        // Turned clockwise about the canvas centre: the picture's top edge runs down the right side.
        QTest::newRow("rotate 90") << QVariantMap{{"rotate", 90}} << "aspect_fit"
                                   << QVector<QPointF>{{1250, -150}, {1250, 1050}, {350, -150}, {350, 1050}};
        QTest::newRow("zoom, rotate, offset") << QVariantMap{{"zoom", 0.5}, {"rotate", -90}, {"offset_x", 0.125}}
                                              << "aspect_fit"
                                              << QVector<QPointF>{{775, 750}, {775, 150}, {1225, 750}, {1225, 150}};
        QTest::newRow("flip h") << QVariantMap{{"flip_h", true}} << "aspect_fit"
                                << QVector<QPointF>{{1400, 0}, {200, 0}, {1400, 900}, {200, 900}};
        QTest::newRow("flip v, offset") << QVariantMap{{"flip_v", true}, {"offset_y", 0.1}} << ""
                                        << QVector<QPointF>{{0, 810}, {1600, 810}, {0, -90}, {1600, -90}};
    }
    void quadCorners()
    {
        QFETCH(QVariantMap, transform);
        QFETCH(QString, fillMode);
        QFETCH(QVector<QPointF>, corners);
        const QSizeF canvas(1600, 900);
        QVector<QPointF> got;
        for (const RenderVertex &v : RenderGeometry::quadVertices(transform, {1200, 900}, canvas, fillMode, 0))
            got << toPixels(v, canvas);
        checkCorners(got, corners, 0.01);
    }

    // Texture corners (TL, TR, BL, BR upright) per stream rotation: 90 shows the bottom-left at the top left.
    void textureCorners_data()
    {
        QTest::addColumn<int>("rotation");
        QTest::addColumn<QString>("crop");
        QTest::addColumn<QVector<QPointF>>("corners");
        QTest::newRow("0, whole") << 0 << "" << QVector<QPointF>{{0, 0}, {1, 0}, {0, 1}, {1, 1}};
        const QString crop = "0.1,0.2,0.5,0.4";
        QTest::newRow("0, crop") << 0 << crop << QVector<QPointF>{{0.1, 0.2}, {0.6, 0.2}, {0.1, 0.6}, {0.6, 0.6}};
        QTest::newRow("90, crop") << 90 << crop << QVector<QPointF>{{0.2, 0.9}, {0.2, 0.4}, {0.6, 0.9}, {0.6, 0.4}};
        QTest::newRow("180, crop") << 180 << crop << QVector<QPointF>{{0.9, 0.8}, {0.4, 0.8}, {0.9, 0.4}, {0.4, 0.4}};
        QTest::newRow("270, crop") << 270 << crop << QVector<QPointF>{{0.8, 0.1}, {0.8, 0.6}, {0.4, 0.1}, {0.4, 0.6}};
    }
    void textureCorners()
    {
        QFETCH(int, rotation);
        QFETCH(QString, crop);
        QFETCH(QVector<QPointF>, corners);
        QVector<QPointF> got;
        for (const RenderVertex &v : RenderGeometry::quadVertices({{"crop", crop}}, {900, 1600}, {1600, 900}, "aspect_fit", rotation))
            got << QPointF(v.u, v.v);
        checkCorners(got, corners, 1e-6);
    }

    void blurAreas_data()
    {
        QTest::addColumn<QSizeF>("picture");
        QTest::addColumn<QString>("fillMode");
        QTest::addColumn<QRectF>("drawn"); // a null rectangle: the fitted picture
        QTest::addColumn<int>("areas");
        QTest::newRow("pillar box") << QSizeF(1200, 900) << "aspect_fit" << QRectF() << 2;
        QTest::newRow("letter box") << QSizeF(1920, 800) << "aspect_fit" << QRectF() << 2;
        QTest::newRow("same shape") << QSizeF(3200, 1800) << "aspect_fit" << QRectF() << 0;
        QTest::newRow("fill") << QSizeF(1200, 900) << "aspect_fill" << QRectF() << 0;
        QTest::newRow("over the top edge") << QSizeF() << "" << QRectF(100, -50, 900, 500) << 3;
        QTest::newRow("inside") << QSizeF() << "" << QRectF(100, 100, 200, 200) << 4;
        QTest::newRow("off the canvas") << QSizeF() << "" << QRectF(2000, 0, 100, 100) << 1;
    }
    void blurAreas()
    {
        QFETCH(QSizeF, picture);
        QFETCH(QString, fillMode);
        QFETCH(QRectF, drawn);
        QFETCH(int, areas);
        const QSizeF canvas(1600, 900);
        if (drawn.isNull())
            drawn = RenderGeometry::fitRect(picture, canvas, fillMode);
        QVector<QRectF> tiles = RenderGeometry::blurAreas(drawn, canvas);
        QCOMPARE(tiles.size(), areas);
        // With the drawn part they tile the canvas: all inside, no overlap, no gap.
        const QRectF whole(QPointF(0, 0), canvas);
        tiles << (drawn & whole);
        double area = 0;
        for (int i = 0; i < tiles.size(); ++i) {
            QVERIFY(whole.contains(tiles[i]) || tiles[i].isEmpty());
            area += tiles[i].width() * tiles[i].height();
            for (int j = i + 1; j < tiles.size(); ++j) {
                const QRectF overlap = tiles[i] & tiles[j];
                QVERIFY2(overlap.width() * overlap.height() < 1e-6, qPrintable(QString("%1 and %2").arg(i).arg(j)));
            }
        }
        QVERIFY(qAbs(area - canvas.width() * canvas.height()) < 1e-3);
    }
};

QTEST_GUILESS_MAIN(TestUtilities)
#include "tst_utilities.moc"
