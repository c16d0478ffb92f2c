#include "TempConfigHome.h"
#include "TestFirmware.h"
#include "app/Config.h"
#include "hw/AmbeFrame.h"
#include "hw/Dv3000.h"
#include "hw/Md380Vocoder.h"

#include <QJsonObject>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <array>

using zl::hw::Dv3000;
using zl::hw::Md380Vocoder;

namespace {

using Pcm = std::array<qint16, 160>;

const auto* bytes(const QByteArray& data)
{
    return reinterpret_cast<const uint8_t*>(data.constData());
}

bool initWith(Md380Vocoder& vocoder, const QByteArray& fw, const QByteArray& ram)
{
    return vocoder.init(bytes(fw), fw.size(), bytes(ram), ram.size());
}

int bitOf(const uint8_t* frame, int i)
{
    return (frame[i / 8] >> (7 - i % 8)) & 1;
}

// What the stand-in decoder writes for one half: see md380_test_fw.S.
void checkDecodedHalf(const qint16* out, const uint8_t frame[7], int half, int count, uint32_t outAddress)
{
    for (int i = 0; i < 49; ++i) {
        const int x = bitOf(frame, i) * 1000 + half * 100 + count;
        QCOMPARE(int(out[i]), x * 3 / 2);
    }
    QCOMPARE(int(out[49]), 80);                  // n
    QCOMPARE(int(out[50]), 0);                   // fourth argument
    QCOMPARE(int(out[51]), 0);                   // fifth, first on the stack
    QCOMPARE(quint16(out[52]), quint16(0x1224)); // work area, from the seventh
    QCOMPARE(quint16(out[53]), quint16(0x2001));
    QCOMPARE(quint16(out[54]), quint16(0x1C8E)); // bit buffer
    QCOMPARE(quint16(out[55]), quint16(0x2001));
    QCOMPARE(quint16(out[56]), quint16(outAddress & 0xFFFF));
    QCOMPARE(quint16(out[57]), quint16(outAddress >> 16));
    for (int i = 58; i < 80; ++i)
        QCOMPARE(int(out[i]), i);
}

} // namespace

class TestMd380Vocoder : public QObject {
    Q_OBJECT

private:
    TempConfigHome home;
    QByteArray fw = testfw::firmware();
    QByteArray ram = testfw::ram();

private slots:
    void initTestCase() { QVERIFY(fw.size() > 0x45248); }

    // Images over the emulator's limits are refused; a second init keeps the engine, whatever it is
    // given; a closed vocoder does no work.
    void initAndClose()
    {
        Md380Vocoder vocoder;
        const uint8_t frame[7] = {};
        QByteArray out(320, '\0');
        QVERIFY(!vocoder.decode(frame, reinterpret_cast<uint8_t*>(out.data())));
        QVERIFY(!initWith(vocoder, testfw::firmware(0xF4001), ram));
        QVERIFY(!initWith(vocoder, fw, testfw::ram(0x20001)));
        QVERIFY(!vocoder.init(nullptr, fw.size(), bytes(ram), ram.size()));
        QVERIFY(!vocoder.init(bytes(fw), 0, bytes(ram), ram.size()));
        QVERIFY(!vocoder.isOpen());
        QVERIFY(initWith(vocoder, testfw::firmware(0xF4000), ram));
        QVERIFY(vocoder.decode(frame, reinterpret_cast<uint8_t*>(out.data())));
        QVERIFY(vocoder.init(nullptr, 0, nullptr, 0));
        QVERIFY(vocoder.decode(frame, reinterpret_cast<uint8_t*>(out.data())));
        QCOMPARE(int(reinterpret_cast<const qint16*>(out.constData())[0]), (testfw::decoderCountStart + 2) * 3 / 2);
        vocoder.close();
        QVERIFY(!vocoder.isOpen());
        QVERIFY(!vocoder.decode(frame, reinterpret_cast<uint8_t*>(out.data())));
    }

    void decodeArgumentsAndBits()
    {
        Md380Vocoder vocoder;
        QVERIFY(initWith(vocoder, fw, ram));
        const uint8_t frame[7] = {0xA5, 0x0F, 0xC3, 0x81, 0x7E, 0x24, 0x80};
        Pcm pcm{};
        QVERIFY(vocoder.decode(frame, reinterpret_cast<uint8_t*>(pcm.data())));
        checkDecodedHalf(pcm.data(), frame, 0, testfw::decoderCountStart, 0x20011AA8);
        checkDecodedHalf(pcm.data() + 80, frame, 1, testfw::decoderCountStart + 1, 0x20011B48);
    }

    void resetRepeatsTheOutput()
    {
        Md380Vocoder vocoder;
        QVERIFY(initWith(vocoder, fw, ram));
        const uint8_t frame[7] = {0x12, 0x34, 0x56, 0x78, 0x9A, 0xBC, 0x80};
        Pcm first{};
        Pcm second{};
        Pcm again{};
        QVERIFY(vocoder.decode(frame, reinterpret_cast<uint8_t*>(first.data())));
        QVERIFY(vocoder.decode(frame, reinterpret_cast<uint8_t*>(second.data())));
        QVERIFY(first != second);
        vocoder.reset();
        QVERIFY(vocoder.decode(frame, reinterpret_cast<uint8_t*>(again.data())));
        QCOMPARE(again, first);

        Pcm speech{};
        for (int i = 0; i < 160; ++i)
            speech[i] = qint16((i % 3 == 0 ? -1 : 1) * (100 + i));
        std::array<uint8_t, 7> a{}, b{}, c{};
        QVERIFY(vocoder.encode(reinterpret_cast<const uint8_t*>(speech.data()), a.data()));
        QVERIFY(vocoder.encode(reinterpret_cast<const uint8_t*>(speech.data()), b.data()));
        QVERIFY(a != b);
        vocoder.reset();
        QVERIFY(vocoder.encode(reinterpret_cast<const uint8_t*>(speech.data()), c.data()));
        QCOMPARE(c, a);
    }

    void encodePacksTheBitWords()
    {
        Md380Vocoder vocoder;
        QVERIFY(initWith(vocoder, fw, ram));
        Pcm speech{};
        // Negative samples become one bits: first half samples 0..23, second half 80..103.
        for (int i = 0; i < 160; ++i)
            speech[i] = qint16((i * 7) % 5 < 2 ? -300 - i : 300 + i);
        std::array<uint8_t, 7> out{};
        for (int frame = 0; frame < 2; ++frame) {
            QVERIFY(vocoder.encode(reinterpret_cast<const uint8_t*>(speech.data()), out.data()));
            for (int i = 0; i < 48; ++i) {
                const int sample = i < 24 ? i : 80 + (i - 24);
                QCOMPARE(bitOf(out.data(), i), speech[sample] < 0 ? 1 : 0);
            }
            // Word 48 carries bit 1 of the call count at the second half: 1, then 3.
            QCOMPARE(bitOf(out.data(), 48), frame);
            QCOMPARE(out[6] & 0x7F, 0);
        }
    }

    void softwareChipThroughDv3000()
    {
        QTemporaryDir dir;
        QVERIFY(testfw::writeImages(dir.path()));
        zl::Config::instance().setSection("hardware", QJsonObject{{"md380_fw_dir", dir.path()}});
        Dv3000 dv;
        QSignalSpy detected(&dv, &Dv3000::detected);
        QTest::ignoreMessage(QtInfoMsg, qPrintable(QStringLiteral("Md380Vocoder firmware from ") + dir.path()));
        QVERIFY(dv.openInproc());
        QCOMPARE(detected.count(), 1);
        QCOMPARE(detected.at(0).at(0).toString(), QStringLiteral("MD380 software vocoder"));
        QCOMPARE(detected.at(0).at(1).toString(), QStringLiteral("d02.032 / unicorn"));
        QCOMPARE(dv.currentPort(), QStringLiteral("sw://md380"));
        QVERIFY(dv.isOpen());
        QVERIFY(dv.setRate(33));
        QVERIFY(!dv.setRate(35));
        QCOMPARE(dv.rate(), 33);

        // The air frame reaches the firmware as its 49 parameter bits.
        QSignalSpy pcm(&dv, &Dv3000::pcmFrameReady);
        const QByteArray air = QByteArray::fromHex("b9e881526173002a6b");
        dv.postChannel(air.left(8), 64);
        QCOMPARE(pcm.count(), 0);
        dv.postChannel(air, 72);
        QCOMPARE(pcm.count(), 1);
        uint8_t params[7];
        zl::hw::ambe72To49(bytes(air), params);
        const QByteArray out = pcm.at(0).at(0).toByteArray();
        QCOMPARE(out.size(), 320);
        checkDecodedHalf(reinterpret_cast<const qint16*>(out.constData()), params, 0, testfw::decoderCountStart,
                         0x20011AA8);

        // setRate resets: the same frame gives the same speech again, even at the same rate.
        QVERIFY(dv.setRate(33));
        QCOMPARE(dv.decodeChannel(air, 72), out);

        QSignalSpy ambe(&dv, &Dv3000::ambeFrameReady);
        dv.postSpeech(QByteArray(320, '\0'));
        QCOMPARE(ambe.count(), 1);
        QCOMPARE(ambe.at(0).at(0).toByteArray().size(), 9);
    }

    void openFailures_data()
    {
        QTest::addColumn<int>("size"); // 0: no images at all
        QTest::addColumn<QString>("error");
        QTest::newRow("missing") << 0
                                 << "MD380 firmware not found — put md380fw.img and md380ram.img in "
                                    "share/zephyrlake/vocoder_fw, or set hardware.md380_fw_dir in the config "
                                    "(extract them from your own radio's firmware; they are not shipped)";
        QTest::newRow("oversized") << 0xF4001 << "unicorn init failed";
    }

    void openFailures()
    {
        QFETCH(int, size);
        QFETCH(QString, error);
        QTemporaryDir dir;
        if (size > 0) {
            QVERIFY(testfw::writeImages(dir.path()));
            QFile image(dir.filePath("md380fw.img"));
            QVERIFY(image.open(QIODevice::WriteOnly));
            image.write(testfw::firmware(size));
        }
        zl::Config::instance().setSection("hardware", QJsonObject{{"md380_fw_dir", dir.path()}});
        Dv3000 dv;
        QSignalSpy failed(&dv, &Dv3000::failed);
        QVERIFY(!dv.openInproc());
        QCOMPARE(failed.count(), 1);
        QCOMPARE(failed.at(0).at(0).toString(), "md380 software vocoder: " + error);
        QVERIFY(!dv.isOpen());
    }
};

QTEST_GUILESS_MAIN(TestMd380Vocoder)
#include "tst_md380vocoder.moc"
