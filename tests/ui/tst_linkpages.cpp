// The pages of the linking modes against loopback peers: SvxLink (a reflector and its status
// page), AllStar (IAX2 servers) and EchoLink (a directory and nodes).
#include "EchoLinkDirectoryServer.h"
#include "EchoLinkPeer.h"
#include "IaxServer.h"
#include "LogCapture.h"
#include "SvxReflector.h"
#include "TempConfigHome.h"
#include "app/Config.h"
#include "echolink/EchoLinkDirectory.h"
#include "echolink/EchoLinkDispatcher.h"
#include "iax/IaxClient.h"
#include "svx/SvxReflectorClient.h"
#include "ui/AllStarModePage.h"
#include "ui/AllStarNodeRow.h"
#include "ui/EchoLinkModePage.h"
#include "ui/SvxLinkModePage.h"

#include <QDialog>
#include <QJsonArray>
#include <QJsonObject>
#include <QLabel>
#include <QSignalSpy>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTest>

using IaxState = zl::iax::IaxClient::State;
using QsoState = zl::echolink::EchoLinkQso::State;
using SvxState = zl::svx::SvxReflectorClient::State;

namespace {

constexpr int kSlow = 15000;

// Answers every HTTP request with one fixed JSON body, the way a reflector's status page does.
class StatusServer {
public:
    explicit StatusServer(const QByteArray& body)
    {
        server.listen(QHostAddress::LocalHost);
        QObject::connect(&server, &QTcpServer::newConnection, &server, [this, body] {
            while (QTcpSocket* socket = server.nextPendingConnection()) {
                QObject::connect(socket, &QTcpSocket::readyRead, socket, [this, socket, body] {
                    // As the reflector's own server: the table at /status, 404 anywhere else.
                    const bool known = socket->readAll().startsWith("GET /status ");
                    ++requests;
                    const QByteArray reply = known ? body : QByteArray();
                    socket->write(QByteArray(known ? "HTTP/1.1 200 OK" : "HTTP/1.1 404 Not Found") +
                                  "\r\nContent-Type: application/json\r\nConnection: close\r\n"
                                  "Content-Length: " +
                                  QByteArray::number(reply.size()) + "\r\n\r\n" + reply);
                    socket->disconnectFromHost();
                });
                QObject::connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
            }
        });
    }
    quint16 port() const { return server.serverPort(); }
    int requests = 0;

private:
    QTcpServer server;
};

const QByteArray kStatus = R"({"nodes":{"SM9X":{"nodeLocation":"Stockholm","tg":91},"SM0A":{"nodeLocation":"Täby"}},)"
                           R"("bridge_nodes":{"DL1B":{"nodeLocation":"Berlin"}}})";

void configure(const QString& key, const QJsonObject& extra, const QString& defaultServer = {})
{
    QJsonObject entry{{"enabled", true}, {"callsign", "sm0a"}, {"auth_key", "secret"}, {"tg", 9}};
    for (auto it = extra.begin(); it != extra.end(); ++it)
        entry.insert(it.key(), it.value());
    zl::Config::instance().setSection(
        "svxlink", QJsonObject{{"servers", QJsonObject{{key, entry}}}, {"default_server", defaultServer}});
}

void setNodes(const QJsonArray& nodes)
{
    zl::Config::instance().setSection("allstar", QJsonObject{{"servers", nodes}});
}

QJsonObject node(const QString& name, quint16 port, const QString& number, bool enabled)
{
    return QJsonObject{{"name", name},   {"host", "127.0.0.1"}, {"port", port},         {"username", "radio"},
                       {"password", ""}, {"node", number},      {"callsign", "SM0ABC"}, {"enabled", enabled}};
}

const QHostAddress kLocal("127.0.0.1");
const QHostAddress kNode("127.0.0.2");
const QHostAddress kOther("127.0.0.3");

} // namespace

class TestLinkPages : public QObject {
    Q_OBJECT

private slots:
    void init()
    {
        SvxLinkModePage::setTiming({0, 0, 50});
        AllStarModePage::setStartDelay(0);
    }

    void talkerCarriesTheLocationFromTheStatusPage()
    {
        TempConfigHome home;
        StatusServer status(kStatus);
        SvxReflector reflector;
        reflector.setPassword("SM0A", "secret");
        const QString key = QStringLiteral("127.0.0.1:%1").arg(reflector.port());
        configure(key, {{"portal_url", QStringLiteral("http://127.0.0.1:%1/status").arg(status.port())}});
        SvxLinkModePage page;
        QSignalSpy started(&page, &BaseModePage::transmissionStarted);
        QSignalSpy heard(&page, &BaseModePage::lastHeardLine);
        QSignalSpy ended(&page, &BaseModePage::transmissionEnded);
        QCOMPARE(page.activeRowKey(), key);
        QTRY_VERIFY_WITH_TIMEOUT(page.client(key) && page.client(key)->state() == SvxState::Connected, kSlow);
        QVERIFY(page.isModeConnected());
        QTRY_COMPARE(page.locationOf(key, "DL1B"), QStringLiteral("Berlin"));

        reflector.broadcast(104, SvxReflector::u32(9) + SvxReflector::str("SM9X"));
        QTRY_COMPARE(started.size(), 1);
        QCOMPARE(started.first(), QVariantList({started.first().at(0), "SM9X", "Stockholm", key, "TG 9", false}));
        reflector.broadcast(105, SvxReflector::u32(9) + SvxReflector::str("SM9X"));
        QTRY_COMPARE(heard.size(), 1);
        QCOMPARE(heard.first().mid(1), QVariantList({"SM9X", "Stockholm", key, "TG 9", "0s", "", ""}));
        QCOMPARE(ended.first().at(0).toString(), QStringLiteral("SM9X"));
        // Our own transmission, as the reflector announces it, has its row from the window already.
        reflector.broadcast(104, SvxReflector::u32(9) + SvxReflector::str("sm0a"));
        reflector.broadcast(105, SvxReflector::u32(9) + SvxReflector::str("SM0A"));
        reflector.broadcast(104, SvxReflector::u32(9) + SvxReflector::str("DL1B"));
        QTRY_COMPARE(started.size(), 2);
        QCOMPARE(started.last().at(1).toString(), QStringLiteral("DL1B"));
        QCOMPARE(heard.size(), 1);

        // Only the default reflector transmits, and on its row's talk group.
        SvxReflector::Node* node = reflector.node("SM0A");
        QVERIFY(node);
        page.setPttActive(true);
        QTRY_COMPARE(node->tg, 9u);
        page.setPttActive(false);
    }

    void rowSaysWhyTheLinkFailed_data()
    {
        QTest::addColumn<QString>("cause");
        QTest::addColumn<QString>("text");
        QTest::newRow("wrong password") << QString("password") << QString("Access denied");
        QTest::newRow("no auth key") << QString("key") << QString("auth key");
        QTest::newRow("no Opus") << QString("codec") << QString("does not offer the Opus codec");
        QTest::newRow("v3 entry, v2 reflector")
            << QString("v2only") << QString("reflector speaks only protocol v2 — set an auth key");
        QTest::newRow("v3, not enrolled") << QString("v3") << QString("certificate not signed yet");
    }

    void rowSaysWhyTheLinkFailed()
    {
        QFETCH(QString, cause);
        QFETCH(QString, text);
        TempConfigHome home;
        SvxReflector reflector;
        reflector.setPassword("SM0A", cause == "password" ? "other" : "secret");
        if (cause == "codec")
            reflector.setCodecs({"GSM"});
        if (cause == "v2only")
            reflector.setHighestVersion(2);
        const QString key = QStringLiteral("127.0.0.1:%1").arg(reflector.port());
        QJsonObject entry;
        if (cause == "key" || cause.startsWith(u'v'))
            entry.insert("auth_key", "");
        if (cause.startsWith(u'v'))
            entry.insert("protocol", "v3");
        configure(key, entry);
        SvxLinkModePage page;
        QLabel* status = page.findChild<QLabel*>("svxRowStatus");
        QVERIFY(status);
        QTRY_VERIFY2_WITH_TIMEOUT(status->toolTip().contains(text), qPrintable(status->toolTip()), kSlow);
        QVERIFY(!status->text().isEmpty());
    }

    void statusPortBuildsTheUrlOnTheReflectorHost()
    {
        TempConfigHome home;
        StatusServer status(kStatus);
        configure("127.0.0.1:1", {{"status_port", status.port()}, {"enabled", false}}, "127.0.0.1:1");
        SvxLinkModePage page;
        // Only /status answers with the table.
        QTRY_COMPARE(page.locationOf("127.0.0.1:1", "SM9X"), QStringLiteral("Stockholm"));
        // Without a connection the dialog falls back to the status table.
        QDialog* dialog = page.nodeListDialog();
        QCOMPARE(dialog->findChild<QLabel*>("nodeListInfo")->text(),
                 QStringLiteral("3 nodes — double-click a row to select its TG"));
        delete dialog;
    }

    void noStatusPortAndNoUrlNeverPolls()
    {
        TempConfigHome home;
        StatusServer status(kStatus);
        SvxReflector reflector;
        reflector.setPassword("SM0A", "secret");
        const QString key = QStringLiteral("127.0.0.1:%1").arg(reflector.port());
        configure(key, {{"status_port", 0}});
        LogCapture log;
        SvxLinkModePage page;
        QSignalSpy started(&page, &BaseModePage::transmissionStarted);
        QTRY_VERIFY_WITH_TIMEOUT(page.client(key) && page.client(key)->state() == SvxState::Connected, kSlow);
        reflector.broadcast(104, SvxReflector::u32(9) + SvxReflector::str("SM9X"));
        QTRY_COMPARE(started.size(), 1);
        QCOMPARE(started.first().at(2).toString(), QString());
        // Several poll periods pass without a request.
        QTest::qWait(300);
        QCOMPARE(status.requests, 0);
        QVERIFY(log.linesStartingWith("SvxLink status:").isEmpty());
    }

    // A command goes as DTMF to the active node, once it is connected.
    void commandGoesAsDtmfToTheActiveNode()
    {
        TempConfigHome home;
        IaxServer silent;
        silent.setAnswer(IaxServer::Answer::Silent);
        IaxServer hub;
        IaxServer other;
        setNodes({node("Quiet hub", silent.port(), "1999", true), node("Hub", hub.port(), "2000", true),
                  node("Other", other.port(), "2001", true), node("Dormant", other.port(), "2002", false)});
        AllStarModePage page;
        QCOMPARE(page.activeRowKey(), QStringLiteral("1999"));
        QTRY_VERIFY(page.client("1999") && page.client("1999")->state() == IaxState::Connecting);
        page.sendCommand("*70");
        QCOMPARE(page.commandResult(), QStringLiteral("command: no active node connected"));
        const auto* row = page.findChild<zl::ui::AllStarNodeRow*>("allstarRow_2000");
        QVERIFY(row);
        QCOMPARE(row->text(), QStringLiteral("Hub  —  127.0.0.1  (node 2000)"));
        QTRY_VERIFY(page.client("2000") && page.client("2000")->state() == IaxState::Up);
        QTRY_VERIFY(page.client("2001") && page.client("2001")->state() == IaxState::Up);
        QVERIFY(!page.client("2002"));
        QVERIFY(page.isModeConnected());

        page.setActive("2001");
        hub.received.clear();
        other.received.clear();
        page.sendCommand("  *32000 ");
        QCOMPARE(page.commandResult(), QStringLiteral("sent *32000 to 2001"));
        // The digits of the DTMF frames, each sequence number once (an unanswered frame is sent again).
        const auto dtmf = [](const IaxServer& server) {
            QString digits;
            QList<quint8> seen;
            for (const IaxServer::Frame& f : server.received) {
                if (f.full && f.type == 1 && !seen.contains(f.oseq)) {
                    seen.append(f.oseq);
                    digits.append(QChar(f.subclass));
                }
            }
            return digits;
        };
        QTRY_COMPARE(dtmf(other), QStringLiteral("*32000"));
        QCOMPARE(dtmf(hub), QString());

        // Audio from a node is one last-heard line per reception.
        QSignalSpy heard(&page, &BaseModePage::lastHeardLine);
        hub.sendMini(QByteArray(160, char(0xFF)));
        hub.sendMini(QByteArray(160, char(0xFF)));
        QTRY_COMPARE(heard.size(), 1);
        QCOMPARE(heard.first().mid(1),
                 QVariantList({"Hub  —  127.0.0.1  (node 2000)", "", "AllStar", "2000", "", "", ""}));
    }

    void incomingCallsWithinTheLimits()
    {
        TempConfigHome home;
        EchoLinkDirectoryServer directory;
        zl::Config::instance().setSection("echolink", QJsonObject{{"callsign", "ab1cd"},
                                                                  {"password", "pw"},
                                                                  {"enabled", true},
                                                                  {"servers", "127.0.0.1"},
                                                                  {"accept_incoming", true},
                                                                  {"max_connections", 1},
                                                                  {"block_list", "yy2yy"}});
        const quint16 port = EchoLinkPeer::freePortPair(kOther);
        EchoLinkPeer first(kNode, port, quint16(port + 1));
        EchoLinkPeer second(kOther, port, quint16(port + 1));
        QVERIFY(first.isBound() && second.isBound());
        first.setName("zz1zz Zed");
        second.setName("yy2yy Yan");
        LogCapture log;
        EchoLinkModePage page;
        page.directory()->setPortForTest(directory.port());
        page.dispatcher()->setPortsForTest(port, quint16(port + 1), kLocal);
        page.goOnline();
        QTRY_VERIFY(page.chatLines().contains("-- online as AB1CD"));
        QVERIFY(page.isModeConnected());
        // A node number the list doesn't have asks for the list again.
        page.connectTo(" 4321 ");
        QVERIFY(page.chatLines().contains("-- node 4321 not in the directory (open Directory to refresh)."));
        QSignalSpy heard(&page, &BaseModePage::lastHeardLine);

        first.connectTo(kLocal);
        QTRY_VERIFY(page.qso(kNode.toString()));
        QCOMPARE(page.qso(kNode.toString())->state(), QsoState::Connected);
        QVERIFY(page.chatLines().contains("-- incoming connection from ZZ1ZZ"));
        QCOMPARE(page.activeRowKey(), kNode.toString());

        // The limit of one is reached: the second caller gets no answer.
        second.connectTo(kLocal);
        QTRY_VERIFY(log.lines().contains("EchoLink: rejecting YY2YY — max clients reached"));
        QVERIFY(!page.qso(kOther.toString()));

        // A talker is one last-heard line per reception, the station as call and target.
        first.sendAudio(kLocal, first.gsmPacket(QByteArray(1280, 0)));
        first.sendAudio(kLocal, first.gsmPacket(QByteArray(1280, 0)));
        QTRY_COMPARE(heard.size(), 1);
        QCOMPARE(heard.first().mid(1), QVariantList({"ZZ1ZZ", "", "node -1", "ZZ1ZZ", "", "", ""}));

        // BYE ends the connection; then the block list is what refuses the second caller.
        first.sendBye(kLocal);
        QTRY_VERIFY(!page.qso(kNode.toString()));
        QCOMPARE(page.activeRowKey(), QString());
        second.connectTo(kLocal);
        QTRY_VERIFY(log.lines().contains("EchoLink: rejecting YY2YY — blocked / not allowed"));
        QVERIFY(!page.qso(kOther.toString()));
    }
};

QTEST_MAIN(TestLinkPages)
#include "tst_linkpages.moc"
