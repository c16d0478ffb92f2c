#include "svx/SvxUdpCipher.h"

#include "svx/SvxWire.h"

#include <openssl/evp.h>
#include <openssl/rand.h>

#include <memory>

namespace zl::svx {

namespace {

struct CtxFree {
    void operator()(EVP_CIPHER_CTX* c) const { EVP_CIPHER_CTX_free(c); }
};
using CtxPtr = std::unique_ptr<EVP_CIPHER_CTX, CtxFree>;

const unsigned char* u(const QByteArray& b)
{
    return reinterpret_cast<const unsigned char*>(b.constData());
}

constexpr int kIvSize = 12;

} // namespace

QByteArray gcmSeal(const QByteArray& key, const QByteArray& iv, const QByteArray& aad, const QByteArray& plain,
                   QByteArray& tag)
{
    CtxPtr ctx(EVP_CIPHER_CTX_new());
    int len = 0;
    QByteArray out(plain.size(), Qt::Uninitialized);
    QByteArray t(SvxUdpCipher::kTagSize, Qt::Uninitialized);
    auto* o = reinterpret_cast<unsigned char*>(out.data());
    if (!ctx || key.size() != SvxUdpCipher::kKeySize || iv.size() != kIvSize ||
        EVP_EncryptInit_ex(ctx.get(), EVP_aes_128_gcm(), nullptr, nullptr, nullptr) != 1 ||
        EVP_CIPHER_CTX_ctrl(ctx.get(), EVP_CTRL_GCM_SET_IVLEN, kIvSize, nullptr) != 1 ||
        EVP_EncryptInit_ex(ctx.get(), nullptr, nullptr, u(key), u(iv)) != 1 ||
        EVP_EncryptUpdate(ctx.get(), nullptr, &len, u(aad), int(aad.size())) != 1 ||
        EVP_EncryptUpdate(ctx.get(), o, &len, u(plain), int(plain.size())) != 1 ||
        EVP_EncryptFinal_ex(ctx.get(), o + len, &len) != 1 ||
        EVP_CIPHER_CTX_ctrl(ctx.get(), EVP_CTRL_GCM_GET_TAG, SvxUdpCipher::kTagSize, t.data()) != 1)
        return {};
    tag = t;
    return out;
}

std::optional<QByteArray> gcmOpen(const QByteArray& key, const QByteArray& iv, const QByteArray& aad,
                                  const QByteArray& cipherText, const QByteArray& tag)
{
    CtxPtr ctx(EVP_CIPHER_CTX_new());
    int len = 0;
    QByteArray out(cipherText.size(), Qt::Uninitialized);
    QByteArray t = tag;
    auto* o = reinterpret_cast<unsigned char*>(out.data());
    if (!ctx || key.size() != SvxUdpCipher::kKeySize || iv.size() != kIvSize || tag.size() != SvxUdpCipher::kTagSize ||
        EVP_DecryptInit_ex(ctx.get(), EVP_aes_128_gcm(), nullptr, nullptr, nullptr) != 1 ||
        EVP_CIPHER_CTX_ctrl(ctx.get(), EVP_CTRL_GCM_SET_IVLEN, kIvSize, nullptr) != 1 ||
        EVP_DecryptInit_ex(ctx.get(), nullptr, nullptr, u(key), u(iv)) != 1 ||
        EVP_DecryptUpdate(ctx.get(), nullptr, &len, u(aad), int(aad.size())) != 1 ||
        EVP_DecryptUpdate(ctx.get(), o, &len, u(cipherText), int(cipherText.size())) != 1 ||
        EVP_CIPHER_CTX_ctrl(ctx.get(), EVP_CTRL_GCM_SET_TAG, SvxUdpCipher::kTagSize, t.data()) != 1 ||
        EVP_DecryptFinal_ex(ctx.get(), o + len, &len) != 1)
        return std::nullopt;
    return out;
}

bool SvxUdpCipher::generate()
{
    QByteArray k(kKeySize, Qt::Uninitialized);
    QByteArray r(kIvRandSize, Qt::Uninitialized);
    if (RAND_bytes(reinterpret_cast<unsigned char*>(k.data()), kKeySize) != 1 ||
        RAND_bytes(reinterpret_cast<unsigned char*>(r.data()), kIvRandSize) != 1)
        return false;
    setKey(k, r);
    return true;
}

void SvxUdpCipher::setKey(const QByteArray& k, const QByteArray& r)
{
    key = k;
    ivRand = r;
}

QByteArray SvxUdpCipher::iv(quint16 id, quint32 counter) const
{
    return ivRand + WireWriter().u16(id).u32(counter).data();
}

QByteArray SvxUdpCipher::seal(quint32 counter, const QByteArray& inner, bool initial) const
{
    if (!ready() || ivRand.size() != kIvRandSize)
        return {};
    WireWriter header;
    header.u32(counter);
    if (initial)
        header.u16(clientId);
    QByteArray tag;
    const QByteArray body = gcmSeal(key, iv(clientId, counter), header.data(), inner, tag);
    if (tag.isEmpty())
        return {};
    return header.data() + tag + body;
}

std::optional<QByteArray> SvxUdpCipher::open(const QByteArray& datagram) const
{
    constexpr int kHeader = 4;
    if (!ready() || ivRand.size() != kIvRandSize || datagram.size() < kHeader + kTagSize)
        return std::nullopt;
    const QByteArray aad = datagram.left(kHeader);
    WireReader r(aad);
    const quint32 counter = r.u32();
    return gcmOpen(key, iv(0, counter), aad, datagram.mid(kHeader + kTagSize), datagram.mid(kHeader, kTagSize));
}

} // namespace zl::svx
