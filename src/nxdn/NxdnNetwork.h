#pragma once

#include <QByteArray>
#include <QHostAddress>
#include <QObject>
#include <QString>

class QTimer;
class QUdpSocket;

namespace zl::nxdn {

// The UDP link to one NXDN reflector talkgroup: polls every 5 s, follows the reflector's
// unlink and re-link, and passes 43-byte NXDND datagrams both ways while linked.
class NxdnNetwork : public QObject {
    Q_OBJECT

public:
    NxdnNetwork(const QString& callsign, quint16 tg, QObject* parent = nullptr);
    ~NxdnNetwork() override;

    bool connectTo(const QString& host, quint16 port = 41400);
    void disconnectFrom();
    void sendFrame(const QByteArray& nxdnd43);

    bool isLinked() const { return linkedUp; }
    // Tests shorten the poll interval.
    void setPollInterval(int ms);

signals:
    void linked(bool ok);
    void dataReceived(const QByteArray& nxdnd43);
    void errorReported(const QString& reason);

private slots:
    void onReadyRead();
    void sendPoll();

private:
    QString callsign;
    quint16 tg;
    QHostAddress address;
    quint16 port = 41400;
    QUdpSocket* socket = nullptr;
    QTimer* pollTimer;
    bool linkedUp = false;
};

} // namespace zl::nxdn
