#include "SvxLinkNode.h"

#include <QDir>
#include <QFile>
#include <QNetworkDatagram>
#include <QStandardPaths>

const QHostAddress SvxLinkNode::kAddress("127.0.0.2");
const QHostAddress SvxLinkNode::kDirectoryAddress("127.0.0.4");

namespace {

quint16 freeUdpPort(const QHostAddress& address)
{
    QUdpSocket probe;
    probe.bind(address, 0);
    return probe.localPort();
}

} // namespace

SvxLinkNode::SvxLinkNode(QObject* parent) : QObject(parent)
{
    txSink.bind(QHostAddress::LocalHost, 0);
    connect(&txSink, &QUdpSocket::readyRead, this, [this] {
        while (txSink.hasPendingDatagrams())
            transmitted += txSink.receiveDatagram().data();
    });
    process.setProcessChannelMode(QProcess::MergedChannels);
    connect(&process, &QProcess::readyRead, this, [this] { log += QString::fromLocal8Bit(process.readAll()); });
}

SvxLinkNode::~SvxLinkNode()
{
    if (process.state() != QProcess::NotRunning) {
        process.kill();
        process.waitForFinished(3000);
    }
}

QString SvxLinkNode::unavailableReason()
{
    if (QStandardPaths::findExecutable("svxlink").isEmpty())
        return QStringLiteral("svxlink-server is not installed");
    if (!QFile::exists("/usr/lib/x86_64-linux-gnu/svxlink/ModuleEchoLink.so") &&
        !QFile::exists("/usr/lib/svxlink/ModuleEchoLink.so"))
        return QStringLiteral("svxlink's EchoLink module is not installed");
    QUdpSocket probe;
    if (!probe.bind(kAddress, 5198))
        return QStringLiteral("127.0.0.2:5198 is taken");
    return {};
}

bool SvxLinkNode::start()
{
    if (!dir.isValid())
        return false;
    rxPort = freeUdpPort(kAddress);
    QDir(dir.path()).mkdir("conf.d");
    const QString config = QStringLiteral(R"([GLOBAL]
LOGICS=SimplexLogic
CFG_DIR=%1/conf.d
CARD_SAMPLE_RATE=16000
CARD_CHANNELS=1

[SimplexLogic]
TYPE=Simplex
RX=Rx1
TX=Tx1
MODULES=ModuleEchoLink
CALLSIGN=ZZ9ZZ
EVENT_HANDLER=/usr/share/svxlink/events.tcl
DEFAULT_LANG=en_US
RGR_SOUND_DELAY=-1

[Rx1]
TYPE=Local
AUDIO_DEV=udp:%2:%3
AUDIO_CHANNEL=0
SQL_DET=VOX
SQL_START_DELAY=0
SQL_DELAY=0
SQL_HANGTIME=300
VOX_FILTER_DEPTH=20
VOX_THRESH=300
DTMF_DEC_TYPE=NONE

[Tx1]
TYPE=Local
AUDIO_DEV=udp:127.0.0.1:%4
AUDIO_CHANNEL=0
PTT_TYPE=NONE
TIMEOUT=300
TX_DELAY=0

[ModuleEchoLink]
NAME=EchoLink
ID=2
TIMEOUT=0
SERVERS=%5
CALLSIGN=ZZ9ZZ-L
PASSWORD=nodesecret
SYSOPNAME=Zed
LOCATION=Loopback
MAX_QSOS=4
MAX_CONNECTIONS=5
LINK_IDLE_TIMEOUT=0
BIND_ADDR=%2
ALLOW_IP=127.0.0.0/8
DESCRIPTION="Loopback node\nfor tests\n"
)")
                               .arg(dir.path(), kAddress.toString())
                               .arg(rxPort)
                               .arg(txSink.localPort())
                               .arg(kDirectoryAddress.toString());
    QFile file(dir.filePath("svxlink.conf"));
    if (!file.open(QIODevice::WriteOnly))
        return false;
    file.write(config.toUtf8());
    file.close();
    process.start(QStandardPaths::findExecutable("svxlink"), {"--config=" + file.fileName()});
    return process.waitForStarted(5000);
}

void SvxLinkNode::terminate()
{
    process.terminate();
}

void SvxLinkNode::sendToReceiver(const QByteArray& pcm16k)
{
    // The device collects samples into blocks itself; 20 ms per datagram keeps them small.
    for (qsizetype at = 0; at < pcm16k.size(); at += 640)
        rxFeed.writeDatagram(pcm16k.mid(at, 640), kAddress, rxPort);
}

QByteArray SvxLinkNode::takeTransmitted()
{
    QByteArray out;
    out.swap(transmitted);
    return out;
}
