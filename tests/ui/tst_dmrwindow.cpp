// The window with real DMR peers: two peers log in to a loopback master, a call played by the
// master shows in the last-heard list, and the PTT key sends a stream through the default peer.
#include "HomebrewMaster.h"
#include "PulseServer.h"
#include "TempConfigHome.h"
#include "ThreadedTestMain.h"
#include "VoiceTestKit.h"
#include "app/Config.h"
#include "app/TxTimeout.h"
#include "audio/AudioMixer.h"
#include "dmr/DmrPeerManager.h"
#include "ui/BaseModePage.h"
#include "ui/MainWindow.h"

#include <QApplication>
#include <QFile>
#include <QJsonArray>
#include <QKeyEvent>
#include <QLabel>
#include <QPushButton>
#include <QStackedWidget>
#include <QStatusBar>
#include <QTableWidget>
#include <QTest>
#include <QtEndian>

namespace {

constexpr quint32 kPeerA = 240000101;
constexpr quint32 kPeerB = 240000202;
constexpr quint32 kOwnId = 2400001;
constexpr quint32 kCaller = 2409999;
constexpr quint32 kTg = 91;
constexpr int kLoginMs = 20000;

QJsonObject peer(const QString& label, const QString& id, const QString& essid, const QString& password, quint16 port)
{
    return QJsonObject{{"label", label},           {"callsign_override", "XX0ABC"},
                       {"dmrid_override", id},     {"essid_override", essid},
                       {"network", "Net" + label}, {"server", QStringLiteral("127.0.0.1:%1").arg(port)},
                       {"password", password},     {"auto_connect", true},
                       {"active_tg", int(kTg)}};
}

quint8 flagsOf(const QByteArray& dmrd)
{
    return quint8(dmrd.at(15));
}

quint32 field24(const QByteArray& dmrd, int at)
{
    return (quint32(quint8(dmrd.at(at))) << 16) | (quint32(quint8(dmrd.at(at + 1))) << 8) | quint8(dmrd.at(at + 2));
}

// Call, country, mode, network, target and duration of a last-heard row.
QString row(const QTableWidget* table, int r)
{
    QStringList cells;
    for (int column = 1; column <= 6; ++column)
        cells << table->item(r, column)->text();
    return cells.join('|');
}

void sendKey(QWidget* to, QEvent::Type type, int key)
{
    QKeyEvent event(type, key, Qt::NoModifier);
    QApplication::sendEvent(to, &event);
}

} // namespace

class TestDmrWindow : public QObject {
    Q_OBJECT

private:
    // A sound server with a microphone, started before anything opens an audio device.
    PulseServer pulse;
    TempConfigHome home;
    kit::ChipFarm chips;
    HomebrewMaster master;

    QList<QByteArray> sentBy(quint32 peerId) const
    {
        QList<QByteArray> out;
        for (const HomebrewMaster::Datagram& d : master.receivedWith("DMRD")) {
            if (d.data.mid(11, 4) == kit::be32(peerId))
                out.append(d.data);
        }
        return out;
    }

private slots:
    void initTestCase()
    {
        QVERIFY(chips.start(1));
        QVERIFY(master.listen());
        master.addPeer(kPeerA, "a");
        master.addPeer(kPeerB, "b");
        zl::Config& config = zl::Config::instance();
        config.setSection("dmr", QJsonObject{{"peers", QJsonArray{peer("A", "2400001", "01", "a", master.port()),
                                                                  peer("B", "2400002", "02", "b", master.port())}},
                                             {"default_peer_label", "A"}});
        config.setSection("general", QJsonObject{{"ptt_key", int(Qt::Key_F5)}, {"callsign", "XX0ABC"}});
        config.save();
    }

    void cleanupTestCase()
    {
        // The clients go while the event loop and their sockets still live, as at quit.
        zl::dmr::DmrPeerManager::instance().stopAll();
    }

    void callHeardAndPttThroughTheDefaultPeer()
    {
        MainWindow w;
        w.show();
        QVERIFY(QTest::qWaitForWindowExposed(&w));
        QFile style(QStringLiteral(ZL_SOURCE_DIR "/assets/style.qss"));
        QVERIFY(style.open(QIODevice::ReadOnly));
        qApp->setStyleSheet(QString::fromUtf8(style.readAll()));
        auto* status = w.findChild<QLabel*>("dmrStatus");
        QTRY_COMPARE_WITH_TIMEOUT(status->text(), QString("2/2 peers connected"), kLoginMs);
        auto* cardLabel = w.findChild<QPushButton*>("card_dmr")->findChild<QLabel*>("cardLabel");
        QTRY_VERIFY(cardLabel->text().contains("color:#39c34a;"));
        QVERIFY(cardLabel->text().contains(">NetA</div>"));
        QVERIFY(cardLabel->text().endsWith(">91</div>"));
        auto* table = w.findChild<QTableWidget*>("lastHeard");
        QCOMPARE(table->rowCount(), 0);

        // A call from the master to peer A: header, six bursts, terminator.
        const quint32 stream = 0x5eed0001;
        master.sendToPeer(kPeerA, kit::dmrd(0, kCaller, kTg, 0xA1, stream, QByteArray(33, '\0')));
        const QByteArray burst = kit::toneBurst(8000, 1000);
        for (quint8 i = 0; i < 6; ++i)
            master.sendToPeer(
                kPeerA, kit::dmrd(quint8(i + 1), kCaller, kTg, quint8(0x80 | (i == 0 ? 0x10 : 0) | i), stream, burst));
        master.sendToPeer(kPeerA, kit::dmrd(7, kCaller, kTg, 0xA2, stream, QByteArray(33, '\0')));
        QTRY_COMPARE_WITH_TIMEOUT(table->rowCount(), 1, 5000);
        QCOMPARE(row(table, 0), QString("2409999||DMR|NetA|TG 91 TS2|"));
        QCOMPARE(table->item(0, 0)->background().color(), QColor(0, 200, 80, 56));
        // The stream ends after its silence; the row keeps its place and gets the duration.
        QTRY_VERIFY_WITH_TIMEOUT(table->item(0, 6)->text().endsWith(" s"), 5000);
        QCOMPARE(table->item(0, 0)->background().style(), Qt::NoBrush);

        // PTT by key: a stream from peer A on slot 2 to the talkgroup, and nothing from B.
        master.clearLog();
        auto* label = w.findChild<QLabel*>("txLabel");
        QCOMPARE(label->text(), QString("TX XX0ABC DMR→  / A"));
        QWidget* focus = w.findChild<QStackedWidget*>("modeStack");
        sendKey(focus, QEvent::KeyPress, Qt::Key_F5);
        QVERIFY(w.findChild<QPushButton*>("ptt")->isChecked());
        QCOMPARE(table->rowCount(), 2);
        QCOMPARE(row(table, 0), QString("XX0ABC||DMR|NetA|TG 91 TS2|"));
        const QByteArray tone = SimulatedAmbeChip::sine(8000, 800);
        for (int i = 0; i < 30; ++i)
            emit zl::audio::AudioMixer::instance().micPcmReady(tone);
        // 30 frames of 20 ms make ten bursts behind the header.
        QTRY_VERIFY_WITH_TIMEOUT(sentBy(kPeerA).size() >= 11, 5000);
        sendKey(focus, QEvent::KeyRelease, Qt::Key_F5);
        QTRY_VERIFY(!w.findChild<QPushButton*>("ptt")->isChecked());
        QTRY_VERIFY_WITH_TIMEOUT(!sentBy(kPeerA).isEmpty() && flagsOf(sentBy(kPeerA).last()) == 0xA2, 5000);

        const QList<QByteArray> sent = sentBy(kPeerA);
        QCOMPARE(flagsOf(sent.first()), quint8(0xA1));
        // The test's frames and whatever the sound server's microphone added meanwhile.
        QVERIFY(sent.size() >= 12);
        for (const QByteArray& d : sent) {
            QCOMPARE(field24(d, 5), kOwnId);
            QCOMPARE(field24(d, 8), kTg);
            QCOMPARE(d.mid(16, 4), sent.first().mid(16, 4));
        }
        for (qsizetype i = 1; i + 1 < sent.size(); ++i)
            QCOMPARE(flagsOf(sent.at(i)) & 0xE0, 0x80); // slot 2, voice
        QCOMPARE(sentBy(kPeerB).size(), 0);

        // The master relays the stream to peer B, so it is heard there too, above the TX row;
        // the TX row still gets its duration and loses its colour at release.
        QTRY_VERIFY(!table->findItems(QString::number(kOwnId), Qt::MatchExactly).isEmpty());
        const QList<QTableWidgetItem*> own = table->findItems("XX0ABC", Qt::MatchExactly);
        QCOMPARE(own.size(), 1);
        const int txRow = own.first()->row();
        QVERIFY(table->item(txRow, 6)->text().endsWith(" s"));
        QCOMPARE(table->item(txRow, 0)->background().style(), Qt::NoBrush);
        QCOMPARE(table->item(txRow, 4)->text(), QString("NetA"));

        // A key held past the time-out: the stream ends with its terminator, the status line says why.
        QJsonObject general = zl::Config::instance().section("general");
        general.insert("tx_timeout_s", 12);
        zl::Config::instance().setSection("general", general);
        w.findChild<zl::TxTimeout*>()->setTimeUnitForTests(25);
        master.clearLog();
        sendKey(focus, QEvent::KeyPress, Qt::Key_F5);
        for (int i = 0; i < 10; ++i)
            emit zl::audio::AudioMixer::instance().micPcmReady(tone);
        QTRY_VERIFY(!w.findChild<QPushButton*>("ptt")->isChecked());
        QCOMPARE(w.statusBar()->currentMessage(), QString("TX time-out after 12 s"));
        QTRY_VERIFY_WITH_TIMEOUT(!sentBy(kPeerA).isEmpty() && flagsOf(sentBy(kPeerA).last()) == 0xA2, 5000);
        sendKey(focus, QEvent::KeyRelease, Qt::Key_F5);
    }

    // Chips come and go, peer A is dropped and comes back, PTT goes down and up, all while the
    // master plays a call to each peer. Nothing may crash or race (the ThreadSanitizer build
    // runs this too); at the end every lease is back and both peers are logged in.
    void rescansReloadsAndPttWhileTwoStreamsDecode()
    {
        MainWindow w;
        auto* status = w.findChild<QLabel*>("dmrStatus");
        QTRY_COMPARE_WITH_TIMEOUT(status->text(), QString("2/2 peers connected"), kLoginMs);
        QWidget* focus = w.findChild<QStackedWidget*>("modeStack");
        zl::Config& config = zl::Config::instance();
        const QJsonObject dmr = config.section("dmr");
        const QJsonObject hardware = config.section("hardware");
        QJsonObject withoutA = dmr;
        QJsonArray peers = dmr.value("peers").toArray();
        QJsonObject a = peers.at(0).toObject();
        a.insert("auto_connect", false);
        peers.replace(0, a);
        withoutA.insert("peers", peers);
        SimulatedAmbeChip spare;
        const QJsonObject withSpare = kit::ChipFarm::withServer(hardware, spare.listenUdp());

        const QByteArray burst = kit::toneBurst(8000, 1000);
        const QByteArray tone = SimulatedAmbeChip::sine(8000, 800);
        for (int round = 0; round < 12; ++round) {
            for (quint8 i = 0; i < 6; ++i) {
                const quint8 flags = quint8(0x80 | (i == 0 ? 0x10 : 0) | i);
                master.sendToPeer(kPeerA, kit::dmrd(i, kCaller, kTg, flags, 0x51000000u + quint32(round), burst));
                master.sendToPeer(kPeerB, kit::dmrd(i, kCaller + 1, kTg, flags, 0x52000000u + quint32(round), burst));
            }
            sendKey(focus, QEvent::KeyPress, Qt::Key_F5);
            for (int i = 0; i < 5; ++i)
                emit zl::audio::AudioMixer::instance().micPcmReady(tone);
            config.setSection("hardware", round % 2 ? withSpare : hardware);
            kit::ChipFarm::pool()->rescan();
            if (round % 3 == 1)
                config.setSection("dmr", withoutA);
            else if (round % 3 == 2)
                config.setSection("dmr", dmr);
            QTest::qWait(30);
            sendKey(focus, QEvent::KeyRelease, Qt::Key_F5);
            QTest::qWait(70); // longer than the gap that joins a release to the next press
        }
        config.setSection("dmr", dmr);
        config.setSection("hardware", hardware);
        kit::ChipFarm::pool()->rescan();
        QTRY_COMPARE_WITH_TIMEOUT(status->text(), QString("2/2 peers connected"), kLoginMs);
        QTRY_COMPARE_WITH_TIMEOUT(kit::ChipFarm::pool()->leasedCount(), 0, 5000);
        QTRY_COMPARE_WITH_TIMEOUT(kit::ChipFarm::pool()->readyCount(), 1, 5000);
    }
};

ZL_THREADED_TEST_MAIN(QApplication, TestDmrWindow)
#include "tst_dmrwindow.moc"
