// The real program, as a normal user, with two peers on a loopback master and a simulated
// AMBE chip on UDP: a call played by the master lands in the stored last-heard list, and its
// duration follows when the stream has ended.
#include "HomebrewMaster.h"
#include "ProgramSandbox.h"
#include "SimulatedAmbeChip.h"
#include "VoiceTestKit.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QTest>

#include <csignal>

namespace {

constexpr int kTimeoutMs = 20000;
constexpr quint32 kPeerA = 240000101;
constexpr quint32 kPeerB = 240000102;
constexpr quint32 kCaller = 2409999;

QJsonObject peer(const QString& label, const QString& essid, const QString& password, quint16 port)
{
    return QJsonObject{{"label", label},
                       {"network", "Net" + label},
                       {"server", QStringLiteral("127.0.0.1:%1").arg(port)},
                       {"callsign_override", "XX0ABC"},
                       {"dmrid_override", "2400001"},
                       {"essid_override", essid},
                       {"password", password},
                       {"auto_connect", true},
                       {"active_tg", 91}};
}

QJsonArray storedEntries(const QString& configFile)
{
    QFile file(configFile);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    return QJsonDocument::fromJson(file.readAll()).object().value("lastheard").toObject().value("entries").toArray();
}

// What the program logged so far, for failure messages.
QString programLog(const ProgramSandbox& box)
{
    const QString dir = box.binaryDir() + "/log";
    const QStringList files = ProgramSandbox::logFiles(dir);
    QFile file(files.isEmpty() ? QString() : dir + "/" + files.first());
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QStringLiteral("(no log)");
}

} // namespace

class TestDmrProgram : public QObject {
    Q_OBJECT

private slots:
    void heardCallIsStoredWithItsDuration()
    {
        SimulatedAmbeChip chip;
        const quint16 chipPort = chip.listenUdp();
        QVERIFY(chipPort != 0);
        HomebrewMaster master;
        QVERIFY(master.listen());
        master.addPeer(kPeerA, "a");
        master.addPeer(kPeerB, "b");

        ProgramSandbox box;
        QVERIFY(box.isValid());
        box.writeConfig(QJsonObject{
            {"general", QJsonObject{{"default_mode", "DMR"}}},
            {"hardware",
             QJsonObject{{"ambe_md380_enabled", false},
                         {"ambe_servers", QJsonArray{QJsonObject{{"host", "127.0.0.1"}, {"port", chipPort}}}}}},
            {"dmr", QJsonObject{
                        {"peers", QJsonArray{peer("A", "01", "a", master.port()), peer("B", "02", "b", master.port())}},
                        {"default_peer_label", "A"}}}});
        QProcess* p = box.start();
        QTRY_VERIFY2_WITH_TIMEOUT(master.isLoggedIn(kPeerA) && master.isLoggedIn(kPeerB), qPrintable(programLog(box)),
                                  kTimeoutMs);

        const quint32 stream = 0x5eed0002;
        master.sendToPeer(kPeerA, kit::dmrd(0, kCaller, 91, 0xA1, stream, QByteArray(33, '\0')));
        const QByteArray burst = kit::toneBurst(8000, 1000);
        for (quint8 i = 0; i < 6; ++i)
            master.sendToPeer(
                kPeerA, kit::dmrd(quint8(i + 1), kCaller, 91, quint8(0x80 | (i == 0 ? 0x10 : 0) | i), stream, burst));
        master.sendToPeer(kPeerA, kit::dmrd(7, kCaller, 91, 0xA2, stream, QByteArray(33, '\0')));

        QTRY_COMPARE_WITH_TIMEOUT(storedEntries(box.configFile()).size(), 1, kTimeoutMs);
        QJsonObject row = storedEntries(box.configFile()).first().toObject();
        QCOMPARE(row.value("call").toString(), QString::number(kCaller));
        QCOMPARE(row.value("mode").toString(), QString("DMR"));
        QCOMPARE(row.value("server").toString(), QString("NetA"));
        QCOMPARE(row.value("target").toString(), QString("TG 91 TS2"));
        QTRY_VERIFY_WITH_TIMEOUT(
            storedEntries(box.configFile()).first().toObject().value("dur").toString().endsWith(" s"), kTimeoutMs);
        // The chip decoded the call's voice.
        QVERIFY(chip.packetsReceived(1) >= 18);

        QCOMPARE(::kill(pid_t(p->processId()), SIGTERM), 0);
        QVERIFY(p->waitForFinished(kTimeoutMs));
        QVERIFY2(p->exitStatus() == QProcess::NormalExit && p->exitCode() == 0,
                 qPrintable(QString::fromLocal8Bit(p->readAllStandardError()) + programLog(box)));
    }
};

QTEST_GUILESS_MAIN(TestDmrProgram)
#include "tst_dmrprogram.moc"
