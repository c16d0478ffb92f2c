#pragma once

#include <QByteArray>

#include <optional>

namespace zl::svx {

// AES-128-GCM of the version 3 audio channel. The node draws key and ivRand itself and
// tells them to the reflector; the IV is ivRand, a client id and the datagram counter.
// Datagrams from the reflector use client id 0 in the IV.
class SvxUdpCipher {
public:
    static constexpr int kKeySize = 16;
    static constexpr int kIvRandSize = 6;
    static constexpr int kTagSize = 8;

    // Fresh key and ivRand from the system's random generator.
    bool generate();
    void setClientId(quint16 id) { clientId = id; }
    void setKey(const QByteArray& key, const QByteArray& ivRand);
    bool ready() const { return key.size() == kKeySize; }
    const QByteArray& keyBytes() const { return key; }
    const QByteArray& ivRandBytes() const { return ivRand; }

    // Node to reflector: header, tag, ciphertext. initial puts the client id in the clear
    // header after the counter. Empty on any failure.
    QByteArray seal(quint32 counter, const QByteArray& inner, bool initial) const;
    // Reflector to node: the inner message, or nullopt for a short datagram or a bad tag.
    std::optional<QByteArray> open(const QByteArray& datagram) const;

private:
    QByteArray iv(quint16 id, quint32 counter) const;

    QByteArray key;
    QByteArray ivRand;
    quint16 clientId = 0;
};

// AES-128-GCM with a 12-byte IV and an 8-byte tag; building blocks of the cipher above.
QByteArray gcmSeal(const QByteArray& key, const QByteArray& iv, const QByteArray& aad, const QByteArray& plain,
                   QByteArray& tag);
std::optional<QByteArray> gcmOpen(const QByteArray& key, const QByteArray& iv, const QByteArray& aad,
                                  const QByteArray& cipherText, const QByteArray& tag);

} // namespace zl::svx
