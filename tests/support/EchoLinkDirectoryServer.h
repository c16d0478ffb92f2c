#pragma once

#include <QByteArray>
#include <QList>
#include <QObject>
#include <QTcpServer>

// A loopback EchoLink directory: each TCP connection carries one request. "l..." (a
// registration) is answered with the registration reply, "s" with the station list text, and
// the server then closes the connection, as the public directories do.
class EchoLinkDirectoryServer : public QObject {
    Q_OBJECT

public:
    // Port 0: any free port. A real node connects to port 5200 and nothing else.
    explicit EchoLinkDirectoryServer(const QHostAddress& address = QHostAddress::LocalHost, quint16 port = 0,
                                     QObject* parent = nullptr);

    bool isListening() const { return server.isListening(); }

    quint16 port() const { return server.serverPort(); }
    void setRegistrationReply(const QByteArray& reply) { registrationReply = reply; }
    void setStationList(const QByteArray& text) { stationList = text; }
    // Keep the connection open after answering, to show the client doesn't wait for the close.
    void setKeepOpen(bool on) { keepOpen = on; }

    // Builds a list reply in the directory's layout: "@@@", count line, four lines per station,
    // "+++".
    static QByteArray listReply(const QList<QList<QByteArray>>& records);

    QList<QByteArray> requests; // every request, as received

private:
    void onNewConnection();

    QTcpServer server;
    QByteArray registrationReply = "OK";
    QByteArray stationList;
    bool keepOpen = false;
};
