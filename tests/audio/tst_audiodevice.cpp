#include "audio/AudioDevice.h"

#include <QFile>
#include <QTemporaryDir>
#include <QTest>

// A stand-in for pactl on PATH: records its arguments, exits with the code in a file.
class TestAudioDevice : public QObject {
    Q_OBJECT

private:
    QTemporaryDir bin;
    QByteArray savedPath;

    QString argsFile() const { return bin.filePath("args"); }

    void writeFakePactl(const QByteArray& body)
    {
        QFile script(bin.filePath("pactl"));
        QVERIFY(script.open(QIODevice::WriteOnly | QIODevice::Truncate));
        script.write("#!/bin/sh\n" + body);
        script.close();
        script.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
        QFile::remove(argsFile());
    }

    QString recordedArgs() const
    {
        QFile file(argsFile());
        return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()).trimmed() : QString();
    }

private slots:
    void initTestCase()
    {
        savedPath = qgetenv("PATH");
        qputenv("PATH", bin.path().toLocal8Bit() + ":" + savedPath);
    }

    void cleanupTestCase() { qputenv("PATH", savedPath); }

    void successRunsSetCardProfile()
    {
        writeFakePactl("echo \"$@\" > '" + argsFile().toLocal8Bit() + "'\nexit 0\n");
        QVERIFY(zl::AudioDevice::restoreCardProfile("alsa_card.pci-0000_00_1f.3", "output:hdmi-stereo"));
        QCOMPARE(recordedArgs(), QStringLiteral("set-card-profile alsa_card.pci-0000_00_1f.3 output:hdmi-stereo"));
    }

    void failureExitCodeIsFalse()
    {
        writeFakePactl("exit 1\n");
        QVERIFY(!zl::AudioDevice::restoreCardProfile("card", "profile"));
    }

    void halfSetDoesNotRunPactl_data()
    {
        QTest::addColumn<QString>("card");
        QTest::addColumn<QString>("profile");
        QTest::newRow("no card") << ""
                                 << "output:analog-stereo";
        QTest::newRow("no profile") << "alsa_card.usb"
                                    << "";
        QTest::newRow("neither") << ""
                                 << "";
    }

    void halfSetDoesNotRunPactl()
    {
        QFETCH(QString, card);
        QFETCH(QString, profile);
        writeFakePactl("echo ran > '" + argsFile().toLocal8Bit() + "'\nexit 0\n");
        QVERIFY(!zl::AudioDevice::restoreCardProfile(card, profile));
        QCOMPARE(recordedArgs(), QString());
    }

    void hangingPactlIsKilled()
    {
        writeFakePactl("exec sleep 30\n");
        QElapsedTimer timer;
        timer.start();
        QVERIFY(!zl::AudioDevice::restoreCardProfile("card", "profile"));
        QVERIFY(timer.elapsed() < 10000);
    }

    void missingPactlIsFalse()
    {
        QFile::remove(bin.filePath("pactl"));
        qputenv("PATH", bin.path().toLocal8Bit());
        QVERIFY(!zl::AudioDevice::restoreCardProfile("card", "profile"));
        qputenv("PATH", bin.path().toLocal8Bit() + ":" + savedPath);
    }
};

QTEST_GUILESS_MAIN(TestAudioDevice)
#include "tst_audiodevice.moc"
