#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>

#include <optional>

namespace zl::svx {

// Message types of the reflector's TCP control channel.
namespace msg {
enum : quint16 {
    Heartbeat = 1,
    ProtoVer = 5,
    ProtoVerDowngrade = 6,
    AuthChallenge = 10,
    AuthResponse = 11,
    AuthOk = 12,
    Error = 13,
    StartEncryptionRequest = 14,
    StartEncryption = 15,
    ClientCsrRequest = 16,
    ClientCsr = 17,
    ClientCert = 18,
    CaInfo = 19,
    CaBundleRequest = 20,
    CaBundle = 21,
    ServerInfo = 100,
    NodeList = 101,
    NodeJoined = 102,
    NodeLeft = 103,
    TalkerStart = 104,
    TalkerStop = 105,
    SelectTg = 106,
    TgMonitor = 107,
    NodeInfo = 111,
    StartUdpEncryption = 114,
};
} // namespace msg

// Frames are a u32 length of type and payload, then the u16 type; anything outside these
// bounds is a framing error that blocks the stream.
constexpr quint32 kMinFrameLength = 2;
constexpr quint32 kMaxFrameLength = 0x100000;

struct Frame {
    quint16 type = 0;
    QByteArray payload;
};

// Cuts the complete frames off the front of buffer into out and returns the bytes they
// took. An incomplete frame or a bad length ends the walk.
qsizetype takeFrames(const QByteArray& buffer, QList<Frame>& out);
QByteArray encodeFrame(quint16 type, const QByteArray& payload);

// Big-endian reader over a payload; every read past the end clears ok().
class WireReader {
public:
    explicit WireReader(const QByteArray& data) : data(data) {}
    bool ok() const { return good; }
    qsizetype remaining() const { return data.size() - pos; }
    quint16 u16();
    quint32 u32();
    QByteArray bytes();
    QString string() { return QString::fromUtf8(bytes()); }

private:
    bool need(qsizetype n);

    const QByteArray& data;
    qsizetype pos = 0;
    bool good = true;
};

class WireWriter {
public:
    WireWriter& u16(quint16 v);
    WireWriter& u32(quint32 v);
    WireWriter& bytes(const QByteArray& b);
    WireWriter& string(const QString& s) { return bytes(s.toUtf8()); }
    const QByteArray& data() const { return out; }

private:
    QByteArray out;
};

// Outgoing messages: payloads only.
QByteArray encodeProtoVer(quint16 major, quint16 minor);
QByteArray encodeAuthResponse(const QString& callsign, const QByteArray& digest);
QByteArray encodeClientCsr(const QString& pem);
QByteArray encodeSelectTg(quint32 tg);
// Sorted ascending, duplicates removed, as the reflector expects.
QByteArray encodeTgMonitor(QList<quint32> tgs);
QByteArray encodeNodeInfoV2(const QString& json);
QByteArray encodeNodeInfoV3(const QByteArray& ivRand, const QByteArray& udpKey, const QString& json);

// Incoming messages: nullopt where the payload is refused.
struct ServerInfo {
    quint16 clientId = 0;
    QStringList nodes;
    QStringList codecs;
};
struct Talker {
    quint32 tg = 0;
    QString callsign;
};
std::optional<QByteArray> parseAuthChallenge(const QByteArray& payload);
// A reason that doesn't fit gives an empty text.
QString parseError(const QByteArray& payload);
// Lists stop at the first element that doesn't fit; what was read counts.
std::optional<ServerInfo> parseServerInfo(const QByteArray& payload);
std::optional<QStringList> parseNodeList(const QByteArray& payload);
// One string: NodeJoined, NodeLeft, ClientCert, CaBundle.
std::optional<QString> parseString(const QByteArray& payload);
std::optional<Talker> parseTalker(const QByteArray& payload);
// The highest major version the reflector speaks.
std::optional<quint16> parseProtoVerDowngrade(const QByteArray& payload);

QByteArray hmacSha1(const QByteArray& key, const QByteArray& data);

} // namespace zl::svx
