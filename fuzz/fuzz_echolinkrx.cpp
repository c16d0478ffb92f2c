// Any datagram on the audio or control port of a running EchoLink connection, and as a stranger's
// control packet: nothing crashes, whatever the lengths inside say.
#include "echolink/EchoLinkPackets.h"
#include "echolink/EchoLinkQso.h"

#include <QCoreApplication>

#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static int argc = 1;
    static char name[] = "fuzz_echolinkrx";
    static char* argv[] = {name, nullptr};
    static QCoreApplication app(argc, argv);
    static zl::echolink::EchoLinkQso* qso = [] {
        auto* q = new zl::echolink::EchoLinkQso;
        q->setSendFunction([](const QHostAddress&, quint16, const QByteArray&) {});
        q->acceptIncoming(QHostAddress::LocalHost);
        return q;
    }();
    const QByteArray datagram(reinterpret_cast<const char*>(data), qsizetype(size));
    qso->onAudioDatagram(datagram);
    // The same bytes behind an audio header reach the GSM decoder.
    qso->onAudioDatagram(QByteArray::fromHex("c00300000000000000000000") + datagram);
    (void)zl::echolink::sdesCallsign(datagram);
    qso->onCtrlDatagram(datagram);
    if (qso->state() != zl::echolink::EchoLinkQso::State::Connected)
        qso->acceptIncoming(QHostAddress::LocalHost);
    return 0;
}
