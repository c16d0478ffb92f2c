#include "SvxTestCa.h"

#include <QStringList>

#include <openssl/bio.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <algorithm>

namespace {

EVP_PKEY* newKey()
{
    return EVP_PKEY_Q_keygen(nullptr, nullptr, "RSA", size_t(2048));
}

QByteArray toPem(X509* cert)
{
    BIO* bio = BIO_new(BIO_s_mem());
    PEM_write_bio_X509(bio, cert);
    char* data = nullptr;
    const long n = BIO_get_mem_data(bio, &data);
    QByteArray out(data, int(n));
    BIO_free(bio);
    return out;
}

QByteArray keyToPem(EVP_PKEY* key)
{
    BIO* bio = BIO_new(BIO_s_mem());
    PEM_write_bio_PrivateKey(bio, key, nullptr, nullptr, 0, nullptr, nullptr);
    char* data = nullptr;
    const long n = BIO_get_mem_data(bio, &data);
    QByteArray out(data, int(n));
    BIO_free(bio);
    return out;
}

X509* certFromPem(const QByteArray& pem)
{
    BIO* bio = BIO_new_mem_buf(pem.constData(), int(pem.size()));
    X509* cert = PEM_read_bio_X509(bio, nullptr, nullptr, nullptr);
    BIO_free(bio);
    return cert;
}

X509_REQ* reqFromPem(const QByteArray& pem)
{
    BIO* bio = BIO_new_mem_buf(pem.constData(), int(pem.size()));
    X509_REQ* req = PEM_read_bio_X509_REQ(bio, nullptr, nullptr, nullptr);
    BIO_free(bio);
    return req;
}

void addExt(X509* cert, X509* issuer, int nid, const char* value)
{
    X509V3_CTX ctx;
    X509V3_set_ctx_nodb(&ctx);
    X509V3_set_ctx(&ctx, issuer, cert, nullptr, nullptr, 0);
    X509_EXTENSION* ext = X509V3_EXT_conf_nid(nullptr, &ctx, nid, value);
    X509_add_ext(cert, ext, -1);
    X509_EXTENSION_free(ext);
}

X509* newCert(X509_NAME* subject, X509_NAME* issuer, EVP_PKEY* pub, int notBeforeDays, int notAfterDays)
{
    static long serial = 1;
    X509* cert = X509_new();
    X509_set_version(cert, 2);
    ASN1_INTEGER_set(X509_get_serialNumber(cert), ++serial);
    X509_gmtime_adj(X509_getm_notBefore(cert), long(notBeforeDays) * 86400);
    X509_gmtime_adj(X509_getm_notAfter(cert), long(notAfterDays) * 86400);
    X509_set_subject_name(cert, subject);
    X509_set_issuer_name(cert, issuer);
    X509_set_pubkey(cert, pub);
    return cert;
}

} // namespace

SvxTestCa::SvxTestCa(const QString& commonName)
{
    EVP_PKEY* key = newKey();
    X509_NAME* name = X509_NAME_new();
    const QByteArray cn = commonName.toUtf8();
    X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_UTF8, reinterpret_cast<const unsigned char*>(cn.constData()), -1,
                               -1, 0);
    X509* cert = newCert(name, name, key, -1, 365);
    addExt(cert, cert, NID_basic_constraints, "critical,CA:TRUE");
    addExt(cert, cert, NID_key_usage, "critical,keyCertSign,cRLSign");
    addExt(cert, cert, NID_subject_key_identifier, "hash");
    X509_sign(cert, key, EVP_sha256());
    X509_NAME_free(name);
    caKey = key;
    caCert = cert;
    caCertPem = toPem(cert);
}

SvxTestCa::~SvxTestCa()
{
    EVP_PKEY_free(static_cast<EVP_PKEY*>(caKey));
    X509_free(static_cast<X509*>(caCert));
}

SvxTestCa::Issued SvxTestCa::issueServer(const QString& subjectAltName, int notBeforeDays, int notAfterDays) const
{
    auto* ca = static_cast<X509*>(caCert);
    EVP_PKEY* key = newKey();
    X509_NAME* name = X509_NAME_new();
    X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC, reinterpret_cast<const unsigned char*>("reflector"), -1, -1,
                               0);
    X509* cert = newCert(name, X509_get_subject_name(ca), key, notBeforeDays, notAfterDays);
    addExt(cert, ca, NID_basic_constraints, "critical,CA:FALSE");
    addExt(cert, ca, NID_ext_key_usage, "serverAuth");
    addExt(cert, ca, NID_subject_alt_name, subjectAltName.toUtf8().constData());
    X509_sign(cert, static_cast<EVP_PKEY*>(caKey), EVP_sha256());
    Issued out{toPem(cert), keyToPem(key)};
    X509_NAME_free(name);
    X509_free(cert);
    EVP_PKEY_free(key);
    return out;
}

QByteArray SvxTestCa::signCsr(const QByteArray& csrPem) const
{
    X509_REQ* req = reqFromPem(csrPem);
    if (!req)
        return {};
    EVP_PKEY* pub = X509_REQ_get_pubkey(req);
    QByteArray out;
    if (pub && X509_REQ_verify(req, pub) == 1) {
        auto* ca = static_cast<X509*>(caCert);
        X509* cert = newCert(X509_REQ_get_subject_name(req), X509_get_subject_name(ca), pub, -1, 30);
        addExt(cert, ca, NID_basic_constraints, "critical,CA:FALSE");
        addExt(cert, ca, NID_ext_key_usage, "clientAuth");
        X509_sign(cert, static_cast<EVP_PKEY*>(caKey), EVP_sha256());
        out = toPem(cert);
        X509_free(cert);
    }
    EVP_PKEY_free(pub);
    X509_REQ_free(req);
    return out;
}

bool SvxTestCa::issued(const QByteArray& certPem) const
{
    X509* cert = certFromPem(certPem);
    const bool ok = cert && X509_verify(cert, static_cast<EVP_PKEY*>(caKey)) == 1;
    X509_free(cert);
    return ok;
}

QString SvxTestCa::csrSubject(const QByteArray& csrPem)
{
    X509_REQ* req = reqFromPem(csrPem);
    if (!req)
        return {};
    BIO* bio = BIO_new(BIO_s_mem());
    X509_NAME_print_ex(bio, X509_REQ_get_subject_name(req), 0, XN_FLAG_RFC2253 & ~ASN1_STRFLGS_ESC_MSB);
    char* data = nullptr;
    const long n = BIO_get_mem_data(bio, &data);
    // RFC 2253 order is reversed; give the fields in the order they were added.
    QStringList parts = QString::fromUtf8(data, int(n)).split(u',');
    std::reverse(parts.begin(), parts.end());
    BIO_free(bio);
    X509_REQ_free(req);
    return parts.join(u',');
}

bool SvxTestCa::csrHasSubjectAltName(const QByteArray& csrPem)
{
    X509_REQ* req = reqFromPem(csrPem);
    if (!req)
        return false;
    STACK_OF(X509_EXTENSION)* exts = X509_REQ_get_extensions(req);
    const bool found = exts && X509v3_get_ext_by_NID(exts, NID_subject_alt_name, -1) >= 0;
    sk_X509_EXTENSION_pop_free(exts, X509_EXTENSION_free);
    X509_REQ_free(req);
    return found;
}
