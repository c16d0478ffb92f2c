#pragma once

#include <QByteArray>
#include <QHostAddress>
#include <QObject>
#include <QString>

class QTimer;
class QUdpSocket;

namespace zl::ysf {

// The UDP link to one YSF reflector: polls it every 5 s, reports when it has answered, and
// passes 155-byte YSFD datagrams both ways without looking into them. A reflector that falls
// silent stays linked; the page decides when to give up.
class YsfNetwork : public QObject {
    Q_OBJECT

public:
    explicit YsfNetwork(const QString& callsign, const QString& options = {}, QObject* parent = nullptr);
    ~YsfNetwork() override;

    bool connectTo(const QString& host, quint16 port = 42000);
    void disconnectFrom();
    void sendFrame(const QByteArray& ysfd155);

    bool isLinked() const { return linkedUp; }
    // Tests shorten the poll interval.
    void setPollInterval(int ms);

signals:
    void linked(bool ok);
    void dataReceived(const QByteArray& ysfd155);
    void errorReported(const QString& reason);

private slots:
    void onReadyRead();
    void sendPoll();

private:
    QString callsign;
    QString options;
    QHostAddress address;
    quint16 port = 42000;
    QUdpSocket* socket = nullptr;
    QTimer* pollTimer;
    bool linkedUp = false;
    bool optionSent = false;
};

} // namespace zl::ysf
