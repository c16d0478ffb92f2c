#pragma once

#include <QString>

namespace zl::svx {

// Key, certificate request, signed certificate and CA bundle of one reflector entry, kept
// in their own folder. The reflector's administrator signs; this side asks, stores and
// presents.
class SvxPki {
public:
    // Characters other than letters, digits and "-" become "_".
    static QString sanitize(const QString& text);
    // <config folder>/svx_pki/<host>_<port>, sanitized: one folder per reflector, whatever
    // its entry is called.
    static QString folderFor(const QString& configDir, const QString& host, quint16 port);
    // Earlier versions named the folder after the entry (or its key). Such a folder moves to
    // dir once, without its CA bundle: a reused name may have brought another reflector's CA,
    // and the reflector hands its own out again.
    static void adoptEarlierFolder(const QString& configDir, const QString& earlierName, const QString& dir);

    void setup(const QString& dir, const QString& callsign);
    void setCertFields(const QString& email, const QString& description);
    void setCommonName(const QString& name) { commonName = name.trimmed(); }

    // Generates the key once and writes a fresh request signed with it.
    bool ensureKeyAndCsr();
    bool hasSignedCert() const;
    QString readCsr() const;
    bool saveSignedCert(const QString& pem) const { return saveText(crtPath, pem); }
    bool saveCaBundle(const QString& pem) const { return saveText(caBundlePath, pem); }

    QString directory() const { return dir; }
    QString keyFile() const { return keyPath; }
    QString csrFile() const { return csrPath; }
    QString certFile() const { return crtPath; }
    QString caBundleFile() const { return caBundlePath; }

private:
    static bool saveText(const QString& path, const QString& pem);

    QString dir;
    QString callsign;
    QString keyPath;
    QString csrPath;
    QString crtPath;
    QString caBundlePath;
    QString email;
    QString description;
    QString commonName;
};

} // namespace zl::svx
