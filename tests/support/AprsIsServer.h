#pragma once

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QTcpServer>

class QTcpSocket;

// A loopback APRS-IS server as aprsc behaves toward a client on its user port: a "# aprsc"
// banner on connect, a "# logresp <call> verified|unverified, server <name>" comment after the
// login line, lines of verified clients relayed to the other clients (an unverified client may
// only receive), a "#" comment now and
// then, and every line recorded. A client whose first line is no login is closed. The test
// tells it which passcodes are right and can make it end connections right after the login,
// as a server does when the same callsign-SSID is logged in elsewhere.
class AprsIsServer : public QObject {
    Q_OBJECT

public:
    explicit AprsIsServer(QObject* parent = nullptr);
    ~AprsIsServer() override;

    quint16 port() const { return server.serverPort(); }
    void acceptPasscode(const QByteArray& callsign, int passcode) { passcodes.insert(callsign, passcode); }
    void setCloseAfterLogin(bool on) { closeAfterLogin = on; }
    // Sends a line (the server adds CR LF) to every client.
    void send(const QByteArray& line);
    void dropClients();

    QList<QByteArray> lines; // every line from the clients, login included
    int logins = 0;

signals:
    void lineReceived(const QByteArray& line);

private:
    void onLine(QTcpSocket* socket, const QByteArray& line);

    QTcpServer server;
    QList<QTcpSocket*> clients;
    QList<QTcpSocket*> loggedIn;
    QList<QTcpSocket*> verifiedClients;
    QHash<QByteArray, int> passcodes;
    bool closeAfterLogin = false;
};
