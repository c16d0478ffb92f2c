#include "NxdnNetwork.h"

#include "NxdnFrame.h"

namespace zl::nxdn {

NxdnNetwork::NxdnNetwork(const QString& callsign, quint16 talkgroup, QObject* parent)
    : PolledUdpLink(QStringLiteral("NXDN"), QStringLiteral("NxdnNetwork"), callsign, parent), tg(talkgroup)
{
}

NxdnNetwork::~NxdnNetwork()
{
    disconnectFrom();
}

void NxdnNetwork::sendFrame(const QByteArray& nxdnd43)
{
    if (isLinked() && nxdnd43.size() == kNxdndSize)
        send(nxdnd43);
}

QByteArray NxdnNetwork::pollDatagram() const
{
    return buildNxdnControl("NXDNP", ownCallsign(), tg);
}

QByteArray NxdnNetwork::unlinkDatagram() const
{
    return buildNxdnControl("NXDNU", ownCallsign(), tg);
}

void NxdnNetwork::onDatagram(const QByteArray& data, const QHostAddress&)
{
    if (data.startsWith("NXDNP"))
        setLinked(true);
    else if (data.startsWith("NXDNU"))
        setLinked(false); // the socket stays and polling goes on: the next answer links again
    else if (data.startsWith("NXDND"))
        emit dataReceived(data.left(kNxdndSize));
}

} // namespace zl::nxdn
