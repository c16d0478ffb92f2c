#include "audio/AudioDevice.h"

#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

// A stand-in for pactl first on PATH: records its arguments, exits as its script says.
class TestAudioDevice : public QObject {
    Q_OBJECT

    QTemporaryDir bin;
    QByteArray savedPath;

private slots:
    void initTestCase() { savedPath = qgetenv("PATH"); }

    void cleanupTestCase() { qputenv("PATH", savedPath); }

    void setCardProfile_data()
    {
        QTest::addColumn<QByteArray>("script"); // empty: no pactl at all
        QTest::addColumn<QStringList>("cardProfile");
        QTest::addColumn<bool>("ok");
        QTest::addColumn<QString>("args");
        const QByteArray record = "echo \"$@\" > '" + bin.filePath("args").toLocal8Bit() + "'\n";
        QTest::newRow("success") << record + "exit 0\n"
                                 << QStringList{"alsa_card.pci-0000_00_1f.3", "output:hdmi-stereo"} << true
                                 << "set-card-profile alsa_card.pci-0000_00_1f.3 output:hdmi-stereo";
        QTest::newRow("failure") << record + "exit 1\n"
                                 << QStringList{"card", "profile"} << false << "set-card-profile card profile";
        QTest::newRow("no card") << record << QStringList{"", "output:analog-stereo"} << false << "";
        QTest::newRow("no profile") << record << QStringList{"alsa_card.usb", ""} << false << "";
        QTest::newRow("no pactl") << QByteArray() << QStringList{"card", "profile"} << false << "";
        // Killed long before its 30 s.
        QTest::newRow("hangs") << QByteArray("exec sleep 30\n") << QStringList{"card", "profile"} << false << "";
    }

    void setCardProfile()
    {
        QFETCH(QByteArray, script);
        QFETCH(QStringList, cardProfile);
        QFile pactl(bin.filePath("pactl"));
        QFile::remove(bin.filePath("args"));
        pactl.remove();
        qputenv("PATH", bin.path().toLocal8Bit() + (script.isEmpty() ? QByteArray() : ":" + savedPath));
        if (!script.isEmpty()) {
            QVERIFY(pactl.open(QIODevice::WriteOnly));
            pactl.write("#!/bin/sh\n" + script);
            pactl.close();
            pactl.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
        }
        QElapsedTimer timer;
        timer.start();
        QTEST(zl::AudioDevice::instance().setCardProfile(cardProfile.at(0), cardProfile.at(1)), "ok");
        QVERIFY(timer.elapsed() < 10000);
        QFile args(bin.filePath("args"));
        QTEST(args.open(QIODevice::ReadOnly) ? QString::fromUtf8(args.readAll()).trimmed() : QString(), "args");
    }
};

QTEST_GUILESS_MAIN(TestAudioDevice)
#include "tst_audiodevice.moc"
