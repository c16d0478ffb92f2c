#include "LogCapture.h"
#include "SvxReflector.h"
#include "TempConfigHome.h"
#include "app/Config.h"
#include "svx/SvxReflectorClient.h"
#include "ui/SvxLinkModePage.h"

#include <QDialog>
#include <QJsonObject>
#include <QLabel>
#include <QSignalSpy>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTest>

using State = zl::svx::SvxReflectorClient::State;

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

} // namespace

class TestSvxLinkModePage : public QObject {
    Q_OBJECT

private slots:
    void init() { SvxLinkModePage::setTiming({0, 0, 50}); }

    void talkerCarriesTheLocationFromTheStatusPage()
    {
        TempConfigHome home;
        StatusServer status(kStatus);
        SvxReflector reflector;
        reflector.setPassword("SM0A", "secret");
        const QString key = QStringLiteral("127.0.0.1:%1").arg(reflector.port());
        configure(key, {{"portal_url", QStringLiteral("http://127.0.0.1:%1/status").arg(status.port())}});
        LogCapture log;
        SvxLinkModePage page;
        QSignalSpy started(&page, &BaseModePage::transmissionStarted);
        QSignalSpy heard(&page, &BaseModePage::lastHeardLine);
        QSignalSpy ended(&page, &BaseModePage::transmissionEnded);
        QCOMPARE(page.activeRowKey(), key);
        QTRY_VERIFY_WITH_TIMEOUT(page.client(key) && page.client(key)->state() == State::Connected, kSlow);
        QVERIFY(page.isModeConnected());
        QTRY_VERIFY(!log.linesStartingWith("SvxLink status: got").isEmpty());
        QCOMPARE(log.linesStartingWith("SvxLink status: got").first(),
                 QStringLiteral("SvxLink status: got 3 nodes for %1 (locations now 3)").arg(key));
        QVERIFY(log.lines().contains(
            QStringLiteral("SvxLink status: fetching http://127.0.0.1:%1/status").arg(status.port())));

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
        QCOMPARE(page.locationOf(key, "DL1B"), QStringLiteral("Berlin"));

        // The node list shows the reflector's own table while connected.
        QDialog* dialog = page.nodeListDialog();
        QCOMPARE(dialog->windowTitle(), QStringLiteral("SvxLink nodes"));
        const QString info = dialog->findChild<QLabel*>("nodeListInfo")->text();
        QVERIFY2(info.endsWith(" nodes from the reflector — double-click a row to select its TG") ||
                     info == QStringLiteral("Connected — waiting for the reflector node list…"),
                 qPrintable(info));
        delete dialog;

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
        QTest::newRow("wrong password") << "password"
                                        << "Access denied";
        QTest::newRow("no auth key") << "key"
                                     << "auth key";
        QTest::newRow("no Opus") << "codec"
                                 << "does not offer the Opus codec";
        QTest::newRow("v3 entry, v2 reflector") << "v2only"
                                                << "reflector speaks only protocol v2 — set an auth key";
        QTest::newRow("v3, not enrolled") << "v3"
                                          << "certificate not signed yet";
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
        LogCapture log;
        SvxLinkModePage page;
        QTRY_VERIFY(status.requests >= 1); // polls every 50 ms here: a slow machine may see several
        QVERIFY(log.lines().contains(
            QStringLiteral("SvxLink status: fetching http://127.0.0.1:%1/status").arg(status.port())));
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
        QTRY_VERIFY_WITH_TIMEOUT(page.client(key) && page.client(key)->state() == State::Connected, kSlow);
        reflector.broadcast(104, SvxReflector::u32(9) + SvxReflector::str("SM9X"));
        QTRY_COMPARE(started.size(), 1);
        QCOMPARE(started.first().at(2).toString(), QString());
        // Several poll periods pass without a request.
        QTest::qWait(300);
        QCOMPARE(status.requests, 0);
        QVERIFY(log.linesStartingWith("SvxLink status:").isEmpty());
    }
};

QTEST_MAIN(TestSvxLinkModePage)
#include "tst_svxlinkmodepage.moc"
