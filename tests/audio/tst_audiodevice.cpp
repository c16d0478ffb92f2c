#include "PulseServer.h"
#include "audio/AudioDevice.h"

#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <memory>

namespace {

// One card of `pactl list cards` as PulseAudio and PipeWire print it.
QString card(const QString& name, const QString& profiles, const QString& active)
{
    return QStringLiteral("Card #%1\n\tName: %1\n\tDriver: module-alsa-card.c\n\tProfiles:\n%2"
                          "\tActive Profile: %3\n\tPorts:\n"
                          "\t\tanalog-output-speaker: Speakers (type: Speaker, priority: 10000, available: yes)\n"
                          "\t\t\tPart of profile(s): output:analog-stereo\n")
        .arg(name, profiles, active);
}

// One profile line; the counts and priorities do not matter here.
QString profile(const char* name, const char* text, const char* available = "yes")
{
    return QStringLiteral("\t\t%1: %2 (sinks: 1, sources: 0, priority: 100, available: %3)\n")
        .arg(name, text, available);
}

const QString kAnalog = profile("output:analog-stereo", "Analog Stereo Output");
const QString kHdmi = profile("output:hdmi-stereo", "Digital Stereo (HDMI) Output");
const QString kRest = profile("input:analog-stereo", "Analog Stereo Input") +
                      profile("output:analog-stereo+input:analog-stereo", "Analog Stereo Duplex") +
                      profile("output:hdmi-surround", "Digital Surround 5.1 (HDMI) Output") +
                      profile("output:hdmi-stereo-extra1", "Digital Stereo (HDMI 2) Output", "no") +
                      profile("off", "Off");

} // namespace

// Card profiles from pactl's text, pactl itself replaced by scripts first on PATH, and the
// real pactl against a private PulseAudio server.
class TestAudioDevice : public QObject {
    Q_OBJECT

    QTemporaryDir bin;
    QByteArray savedPath;
    std::unique_ptr<PulseServer> pulse;

    void usePactl(const QByteArray& script)
    {
        QFile pactl(bin.filePath("pactl"));
        QFile::remove(bin.filePath("args"));
        pactl.remove();
        qputenv("PATH", bin.path().toLocal8Bit() + (script.isEmpty() ? QByteArray() : ":" + savedPath));
        if (script.isEmpty())
            return;
        QVERIFY(pactl.open(QIODevice::WriteOnly));
        pactl.write("#!/bin/sh\n" + script);
        pactl.close();
        pactl.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
    }

private slots:
    void initTestCase()
    {
        savedPath = qgetenv("PATH");
        pulse = std::make_unique<PulseServer>();
    }

    void cleanupTestCase() { qputenv("PATH", savedPath); }

    void parseCardProfiles_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QStringList>("offered"); // card|profile|description
        const QString pci = QStringLiteral("alsa_card.pci-0000_00_1f.3");
        const QString usb = QStringLiteral("alsa_card.usb-Generic_USB_Audio-00");
        QTest::newRow("analogue in use: HDMI offered")
            << card(pci, kAnalog + kHdmi + kRest, "output:analog-stereo+input:analog-stereo")
            << QStringList{pci + "|output:hdmi-stereo|Digital Stereo (HDMI) Output"};
        QTest::newRow("HDMI in use with the microphone: analogue offered")
            << card(pci, kAnalog + kHdmi + kRest, "output:hdmi-stereo+input:analog-stereo")
            << QStringList{pci + "|output:analog-stereo|Analog Stereo Output"};
        QTest::newRow("two cards") << card(pci, kHdmi, "output:analog-stereo") + card(usb, kAnalog, "off")
                                   << QStringList{pci + "|output:hdmi-stereo|Digital Stereo (HDMI) Output",
                                                  usb + "|output:analog-stereo|Analog Stereo Output"};
        QTest::newRow("Bluetooth card offers nothing")
            << card("bluez_card.00_1B_66_AA_BB_CC", kHdmi + kAnalog, "a2dp-sink") << QStringList{};
        QTest::newRow("no sinks marker: the rest of the line")
            << card(pci, "\t\toutput:iec958-stereo: Digital Stereo (IEC958) Output, available: yes\n", "off")
            << QStringList{pci + "|output:iec958-stereo|Digital Stereo (IEC958) Output, available: yes"};
        QTest::newRow("no cards") << QString() << QStringList{};
        QTest::newRow("not pactl's text")
            << QStringLiteral("Connection failure: Connection refused\n") << QStringList{};
    }

    void parseCardProfiles()
    {
        QFETCH(QString, text);
        QStringList offered;
        for (const zl::CardProfile& p : zl::AudioDevice::parseCardProfiles(text))
            offered << p.card + "|" + p.profile + "|" + p.description;
        QTEST(offered, "offered");
    }

    // A pactl that fails, hangs or is missing costs an empty answer, never the program.
    void pactlRuns_data()
    {
        QTest::addColumn<QByteArray>("script"); // empty: no pactl at all
        QTest::addColumn<QStringList>("cardProfile");
        QTest::addColumn<bool>("ok");
        QTest::addColumn<QString>("args");
        QTest::addColumn<int>("listed");
        const QByteArray record = "echo \"$@\" > '" + bin.filePath("args").toLocal8Bit() + "'\n";
        const QByteArray cards = "cat <<'END'\n" + card("alsa_card.pci", kAnalog + kHdmi, "off").toUtf8() + "END\n";
        QTest::newRow("success") << record + cards + "exit 0\n"
                                 << QStringList{"alsa_card.pci-0000_00_1f.3", "output:hdmi-stereo"} << true
                                 << "set-card-profile alsa_card.pci-0000_00_1f.3 output:hdmi-stereo" << 2;
        QTest::newRow("failure") << record + cards + "exit 1\n"
                                 << QStringList{"card", "profile"} << false << "set-card-profile card profile" << 0;
        QTest::newRow("no card") << record << QStringList{"", "output:analog-stereo"} << false << "list cards" << 0;
        QTest::newRow("no profile") << record << QStringList{"alsa_card.usb", ""} << false << "list cards" << 0;
        QTest::newRow("no pactl") << QByteArray() << QStringList{"card", "profile"} << false << "" << 0;
        QTest::newRow("killed") << cards + "kill -9 $$\n" << QStringList{"card", "profile"} << false << "" << 0;
        // Killed long before its 30 s.
        QTest::newRow("hangs") << cards + "exec sleep 30\n" << QStringList{"card", "profile"} << false << "" << 0;
    }

    void pactlRuns()
    {
        QFETCH(QByteArray, script);
        QFETCH(QStringList, cardProfile);
        usePactl(script);
        QElapsedTimer timer;
        timer.start();
        QTEST(int(zl::AudioDevice::instance().listCardProfiles().size()), "listed");
        QTEST(zl::AudioDevice::instance().setCardProfile(cardProfile.at(0), cardProfile.at(1)), "ok");
        QVERIFY(timer.elapsed() < 20000);
        QFile args(bin.filePath("args"));
        QTEST(args.open(QIODevice::ReadOnly) ? QString::fromUtf8(args.readAll()).trimmed() : QString(), "args");
    }

    // The server has null sinks but no sound card: nothing to switch, and switching a card
    // that is not there fails.
    void realServer()
    {
        if (!pulse->isRunning())
            QSKIP(qPrintable("no PulseAudio server could be started: " + pulse->failure()));
        qputenv("PATH", savedPath);
        const zl::AudioDevice& device = zl::AudioDevice::instance();
        QVERIFY(pulse->pactl({"list", "short", "sinks"}).contains("zl_null"));
        QCOMPARE(pulse->pactl({"list", "cards"}).trimmed(), QByteArray());
        QVERIFY(device.listCardProfiles().isEmpty());
        QVERIFY(!device.setCardProfile("alsa_card.pci-0000_00_1f.3", "output:analog-stereo"));
        QVERIFY(device.listOutputs().contains("zl-speaker") && device.listInputs().contains("zl-tone"));
    }
};

QTEST_GUILESS_MAIN(TestAudioDevice)
#include "tst_audiodevice.moc"
