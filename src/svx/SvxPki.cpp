#include "svx/SvxPki.h"

#include "app/FileWrite.h"

#include <QDebug>
#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <cstdio>
#include <memory>

namespace zl::svx {

namespace {

struct Free {
    void operator()(EVP_PKEY* p) const { EVP_PKEY_free(p); }
    void operator()(X509_REQ* p) const { X509_REQ_free(p); }
    void operator()(FILE* f) const { fclose(f); }
    void operator()(BIO* b) const { BIO_free(b); }
    void operator()(STACK_OF(X509_EXTENSION) * s) const { sk_X509_EXTENSION_pop_free(s, X509_EXTENSION_free); }
};
using KeyPtr = std::unique_ptr<EVP_PKEY, Free>;
using ReqPtr = std::unique_ptr<X509_REQ, Free>;
using FilePtr = std::unique_ptr<FILE, Free>;
using BioPtr = std::unique_ptr<BIO, Free>;
using ExtsPtr = std::unique_ptr<STACK_OF(X509_EXTENSION), Free>;

FilePtr openFile(const QString& path, const char* mode)
{
    return FilePtr(std::fopen(QFile::encodeName(path).constData(), mode));
}

QByteArray bioBytes(BIO* bio)
{
    char* data = nullptr;
    const long size = BIO_get_mem_data(bio, &data);
    return QByteArray(data, size > 0 ? qsizetype(size) : 0);
}

bool addName(X509_NAME* name, const char* field, const QString& value)
{
    const QByteArray v = value.toUtf8();
    return X509_NAME_add_entry_by_txt(name, field, MBSTRING_UTF8, reinterpret_cast<const unsigned char*>(v.constData()),
                                      int(v.size()), -1, 0) == 1;
}

bool addExt(STACK_OF(X509_EXTENSION) * exts, int nid, const QString& value)
{
    X509_EXTENSION* ext = X509V3_EXT_conf_nid(nullptr, nullptr, nid, value.toUtf8().constData());
    if (!ext)
        return false;
    sk_X509_EXTENSION_push(exts, ext);
    return true;
}

} // namespace

QString SvxPki::sanitize(const QString& text)
{
    QString out = text;
    for (QChar& c : out) {
        const char16_t v = c.unicode();
        const bool asciiAlnum = (v >= u'a' && v <= u'z') || (v >= u'A' && v <= u'Z') || (v >= u'0' && v <= u'9');
        if (!(asciiAlnum || v == u'-' || (v >= 128 && c.isLetterOrNumber())))
            c = u'_';
    }
    return out;
}

QString SvxPki::folderFor(const QString& configDir, const QString& host, quint16 port)
{
    return QDir(configDir).filePath(QStringLiteral("svx_pki/") + sanitize(QStringLiteral("%1_%2").arg(host).arg(port)));
}

void SvxPki::adoptEarlierFolder(const QString& configDir, const QString& earlierName, const QString& dir)
{
    const QString earlier = QDir(configDir).filePath(QStringLiteral("svx_pki/") + sanitize(earlierName.trimmed()));
    if (earlierName.trimmed().isEmpty() || QDir::cleanPath(earlier) == QDir::cleanPath(dir) || QFileInfo::exists(dir) ||
        !QFileInfo(earlier).isDir())
        return;
    if (!QDir().rename(earlier, dir)) {
        qWarning().noquote() << "SvxPki: could not move" << earlier << "to" << dir;
        return;
    }
    QFile::remove(QDir(dir).filePath(QStringLiteral("ca-bundle.crt")));
    qInfo().noquote() << "SvxPki: moved the key and certificate folder" << earlier << "to" << dir;
}

void SvxPki::setup(const QString& d, const QString& cs)
{
    dir = d;
    callsign = cs.trimmed().toUpper();
    zl::makeFolder(dir, zl::FileAccess::Private);
    QString stem = sanitize(callsign);
    if (stem.isEmpty())
        stem = QStringLiteral("node");
    const QDir folder(dir);
    keyPath = folder.filePath(stem + ".key");
    csrPath = folder.filePath(stem + ".csr");
    crtPath = folder.filePath(stem + ".crt");
    caBundlePath = folder.filePath(QStringLiteral("ca-bundle.crt"));
}

void SvxPki::setCertFields(const QString& e, const QString& d)
{
    email = e.trimmed();
    description = d.trimmed();
}

bool SvxPki::ensureKeyAndCsr()
{
    if (dir.isEmpty() || callsign.isEmpty())
        return false;
    if (!QFileInfo::exists(keyPath)) {
        KeyPtr fresh(EVP_PKEY_Q_keygen(nullptr, nullptr, "RSA", size_t(2048)));
        BioPtr pem(BIO_new(BIO_s_mem()));
        if (!fresh || !pem ||
            PEM_write_bio_PrivateKey(pem.get(), fresh.get(), nullptr, nullptr, 0, nullptr, nullptr) != 1 ||
            !zl::writeFileAtomically(keyPath, bioBytes(pem.get()), zl::FileAccess::Private))
            return false;
    }
    KeyPtr key;
    if (FilePtr f = openFile(keyPath, "rb"))
        key.reset(PEM_read_PrivateKey(f.get(), nullptr, nullptr, nullptr));
    if (!key)
        return false;

    ReqPtr req(X509_REQ_new());
    ExtsPtr exts(sk_X509_EXTENSION_new_null());
    if (!req || !exts || X509_REQ_set_version(req.get(), 0) != 1)
        return false;
    X509_NAME* name = X509_REQ_get_subject_name(req.get());
    if (!addName(name, "CN", commonName.isEmpty() ? callsign : commonName))
        return false;
    if (!email.isEmpty() && !addName(name, "emailAddress", email))
        return false;
    if (!description.isEmpty() && !addName(name, "OU", description))
        return false;
    if (X509_REQ_set_pubkey(req.get(), key.get()) != 1)
        return false;
    if (!addExt(exts.get(), NID_basic_constraints, "critical,CA:FALSE") ||
        !addExt(exts.get(), NID_key_usage, "critical,digitalSignature,keyEncipherment") ||
        !addExt(exts.get(), NID_ext_key_usage, "clientAuth"))
        return false;
    if (email.contains(u'@') && !addExt(exts.get(), NID_subject_alt_name, "email:" + email))
        return false;
    if (X509_REQ_add_extensions(req.get(), exts.get()) != 1 || X509_REQ_sign(req.get(), key.get(), EVP_sha256()) <= 0)
        return false;
    BioPtr pem(BIO_new(BIO_s_mem()));
    return pem && PEM_write_bio_X509_REQ(pem.get(), req.get()) == 1 &&
           zl::writeFileAtomically(csrPath, bioBytes(pem.get()), zl::FileAccess::Private);
}

bool SvxPki::hasSignedCert() const
{
    const QFileInfo info(crtPath);
    return !crtPath.isEmpty() && info.exists() && info.size() > 0;
}

QString SvxPki::readCsr() const
{
    QFile f(csrPath);
    if (!f.open(QIODevice::ReadOnly))
        return {};
    return QString::fromUtf8(f.readAll());
}

bool SvxPki::saveText(const QString& path, const QString& pem)
{
    if (pem.trimmed().isEmpty())
        return false;
    return zl::writeFileAtomically(path, pem.toUtf8(), zl::FileAccess::Private);
}

} // namespace zl::svx
