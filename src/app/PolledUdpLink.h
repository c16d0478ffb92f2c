#pragma once

#include <QByteArray>
#include <QHostAddress>
#include <QObject>
#include <QString>

class QTimer;
class QUdpSocket;

namespace zl {

// The UDP link of the simple reflector protocols (YSF, NXDN): resolve, bind, poll the
// reflector every 5 s, hear only the reflector's address and port. Subclasses give the poll
// and unlink datagrams and decide what a datagram from the reflector means.
class PolledUdpLink : public QObject {
    Q_OBJECT

public:
    // Drops any present link first. False when the host does not resolve or binding fails.
    bool connectTo(const QString& host, quint16 port);
    // Sends the unlink datagram while linked, and reports the link down.
    void disconnectFrom();
    bool isLinked() const { return linkedUp; }
    // Tests shorten the poll interval.
    void setPollInterval(int ms);

signals:
    void linked(bool ok);
    void dataReceived(const QByteArray& frame);
    void errorReported(const QString& reason);

protected:
    // mode names the link in error texts ("YSF: cannot bind UDP"), logName in log lines.
    PolledUdpLink(const QString& mode, const QString& logName, const QString& callsign, QObject* parent);

    virtual QByteArray pollDatagram() const = 0;
    virtual QByteArray unlinkDatagram() const = 0;
    virtual void onDatagram(const QByteArray& data, const QHostAddress& from) = 0;

    // Reports a change of the link state; logs "<logName>: linked" when it comes up.
    void setLinked(bool up);
    bool hasSocket() const { return socket != nullptr; }
    void send(const QByteArray& data);
    const QString& logName() const { return name; }
    const QString& ownCallsign() const { return callsign; }

private:
    void onReadyRead();
    void sendPoll();

    QString mode;
    QString name;
    QString callsign;
    QHostAddress address;
    quint16 port = 0;
    QUdpSocket* socket = nullptr;
    QTimer* pollTimer;
    bool linkedUp = false;
};

} // namespace zl
