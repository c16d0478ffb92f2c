#pragma once

#include <QByteArray>
#include <QList>
#include <QTcpServer>
#include <QTcpSocket>

// A loopback DAPNET core: a good login gets the time "2:…", slots "3:…" and schedule "4:…", each
// once the one before is acked with "+"; others, and the next `refusals` good ones, get "7 …" and
// are closed once that is acked. POST /api/calls answers 201 with the good Authorization, else 401.
class DapnetCore : public QObject {
    Q_OBJECT

public:
    DapnetCore(const QByteArray& login, const QByteArray& authorization);

    quint16 port() const { return transmitters.serverPort(); }
    QString apiBase() const { return QStringLiteral("http://127.0.0.1:%1").arg(rest.serverPort()); }
    // A line (CR LF added) to every transmitter past its schedule.
    void send(const QByteArray& line);

    int refusals = 0;
    QList<QByteArray> lines, calls; // every line from the transmitters; the bodies of the REST calls

private:
    void onTransmitterLine(QTcpSocket* socket, const QByteArray& line);
    void onRestData(QTcpSocket* socket);

    QTcpServer transmitters;
    QTcpServer rest;
    QByteArray goodLogin;
    QByteArray goodAuthorization;
};
