#pragma once

#include <QByteArray>
#include <QList>
#include <QTcpServer>

class QTcpSocket;

// A loopback DAPNET core. A transmitter whose login line is `goodLogin` gets the time "2:…",
// slot data "3:…" and schedule "4:…", each once the one before is acked with "+"; other logins,
// and the next `refusals` good ones, get "7 …" and are closed once that is acked. The REST side
// answers POST /api/calls with 201, or 401 when the Authorization header is not
// `goodAuthorization`. Everything received is recorded.
class DapnetCore : public QObject {
    Q_OBJECT

public:
    DapnetCore();

    quint16 port() const { return transmitters.serverPort(); }
    QString apiBase() const { return QStringLiteral("http://127.0.0.1:%1").arg(rest.serverPort()); }
    // A line (CR LF added) to every transmitter past its schedule.
    void send(const QByteArray& line);

    QByteArray goodLogin;
    int refusals = 0;
    QByteArray goodAuthorization;
    QList<QByteArray> lines; // from the transmitters
    QList<QByteArray> calls; // bodies of the REST calls

private:
    void onTransmitterLine(QTcpSocket* socket, const QByteArray& line);
    void onRestData(QTcpSocket* socket);

    QTcpServer transmitters;
    QTcpServer rest;
};
