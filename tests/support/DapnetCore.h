#pragma once

#include <QByteArray>
#include <QList>
#include <QTcpServer>

class QTcpSocket;

// A loopback DAPNET core as it treats transmitters and its REST clients. A transmitter that
// logs in with a known name and auth key gets the time ("2:…"), its slot data ("3:…") and its
// schedule ("4:…"), each sent once the one before is acknowledged with "+"; any other login is
// refused with "7 …" and closed once the refusal is acknowledged. Test lines go to transmitters
// past their schedule. The REST side takes POST
// /api/calls with HTTP basic authentication and answers 201, or 401 for any other account.
// Every line and every call body is recorded.
class DapnetCore : public QObject {
    Q_OBJECT

public:
    DapnetCore();
    ~DapnetCore() override;

    quint16 port() const { return transmitters.serverPort(); }
    QString apiBase() const { return QStringLiteral("http://127.0.0.1:%1").arg(rest.serverPort()); }
    // The login line of the one transmitter known, refused all the same the first `refused` times.
    void acceptLogin(const QByteArray& loginLine, int refused = 0)
    {
        goodLogin = loginLine;
        refusals = refused;
    }
    void acceptAuthorization(const QByteArray& header) { goodAuthorization = header; }
    // A line (CR LF added) to every logged-in transmitter.
    void send(const QByteArray& line);

    QList<QByteArray> lines; // from the transmitters, logins included
    QList<QByteArray> calls; // bodies of the calls, accepted or not
    int logins = 0;

private:
    void onTransmitterLine(QTcpSocket* socket, const QByteArray& line);
    void onRestData(QTcpSocket* socket);

    QTcpServer transmitters;
    QTcpServer rest;
    QByteArray goodLogin;
    int refusals = 0;
    QByteArray goodAuthorization;
    QList<QTcpSocket*> loggedIn;
};
