#pragma once

#include "Station.h"

#include <QByteArray>
#include <QList>
#include <QObject>
#include <QString>
#include <QStringList>

class QTcpSocket;
class QTimer;

namespace zl::echolink {

// Client of the EchoLink directory servers: registers the station online, busy or off, renews
// that every five minutes, and fetches the station list. Each job is one short TCP connection;
// a server that can't be reached hands the job to the next one in the list.
class EchoLinkDirectory : public QObject {
    Q_OBJECT

public:
    enum class Status { Offline = 1, Online = 2, Busy = 3 };
    Q_ENUM(Status)

    explicit EchoLinkDirectory(QObject* parent = nullptr);

    void setServers(const QStringList& hosts) { servers = hosts; }
    void setCallsign(const QString& own) { callsign = own.toUpper(); }
    void setPassword(const QString& secret) { password = secret; }
    void setLocation(const QString& text) { location = text; }
    // Tests only: a loopback directory on another port, and a shorter renewal interval.
    void setPortForTest(quint16 directoryPort) { port = directoryPort; }
    void setRenewIntervalForTest(int ms);

    bool isRegistered() const { return registeredOk; }
    Status currentStatus() const { return status; }

    void refresh();
    void goOnline(Status newStatus);
    void goOffline();

signals:
    void registered(bool ok);
    void stationsUpdated(const QList<zl::echolink::Station>& stations);
    void errorReported(const QString& reason);

private:
    enum class Job { None = 0, Register = 1, List = 2 };

    void startJob(Job newJob, const QString& newRequest);
    void sendRegistration();
    void dropSocket();
    void onConnected();
    void onReadyRead();
    void onSocketError();
    void finish();
    void finishRegistration(const QByteArray& reply);
    void finishList(const QByteArray& reply);
    void onRenew();
    QString currentServer() const;

    QStringList servers;
    quint16 port = 5200;
    QString callsign;
    QString password;
    QString location;
    Status status = Status::Online;
    bool registeredOk = false;
    bool refreshPending = false;
    QTcpSocket* socket = nullptr;
    QTimer* renewTimer;
    Job job = Job::None;
    QString request;
    QByteArray rxBuffer;
    int serverIndex = 0;
};

// The registration request: "l", callsign, 0xAC 0xAC, password, CR, status text, CR,
// location, CR.
QByteArray registrationRequest(const QString& callsign, const QString& password, const QString& statusText,
                               const QString& location);

// "OFF-V3.40", "ONLINE3.38(HH:mm)" or "BUSY3.40(HH:mm)" for the given local time.
QString registrationStatusText(EchoLinkDirectory::Status status, const QString& localTime);

} // namespace zl::echolink
