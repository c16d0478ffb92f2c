#pragma once

#include "app/PolledUdpLink.h"

namespace zl::nxdn {

// The UDP link to one NXDN reflector talkgroup: polls every 5 s, follows the reflector's
// unlink and re-link, and passes 43-byte NXDND datagrams both ways while linked.
class NxdnNetwork : public zl::PolledUdpLink {
    Q_OBJECT

public:
    NxdnNetwork(const QString& callsign, quint16 tg, QObject* parent = nullptr);
    ~NxdnNetwork() override;

    bool connectTo(const QString& host, quint16 port = 41400) { return PolledUdpLink::connectTo(host, port); }
    // Only while linked.
    void sendFrame(const QByteArray& nxdnd43);

protected:
    QByteArray pollDatagram() const override;
    QByteArray unlinkDatagram() const override;
    void onDatagram(const QByteArray& data, const QHostAddress& from) override;

private:
    quint16 tg;
};

} // namespace zl::nxdn
