#pragma once

#include <QByteArray>
#include <QDir>
#include <QObject>
#include <QProcess>
#include <QTemporaryDir>

class QSocketNotifier;

// Debian's iaxmodem as a real IAX2 endpoint: a soft modem that takes calls on a UDP port in
// mu-law and offers its modem on a pseudo-terminal. The test talks AT commands to it ("ATA"
// answers a ringing call) and reads what it received over IAX2 from its recording in /tmp. Its
// configuration must live below /etc/iaxmodem, which the name reaches by a relative path into
// a private folder; its log goes to the matching folder below /var.
class IaxModem : public QObject {
    Q_OBJECT

public:
    explicit IaxModem(QObject* parent = nullptr);
    ~IaxModem() override;

    static QString unavailableReason();

    bool start(quint16 port);
    void terminate();
    void sendAt(const QByteArray& command);
    QByteArray modemOutput() const { return output; }
    // 8 kHz 16-bit samples iaxmodem received from the IAX2 peer so far.
    QByteArray receivedAudio() const;

private:
    QTemporaryDir dir;
    QString logDir;
    QString name;
    QString recordingBase;
    QProcess process;
    int pty = -1;
    QSocketNotifier* notifier = nullptr;
    QByteArray output;
};
