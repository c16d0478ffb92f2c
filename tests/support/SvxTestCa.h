#pragma once

#include <QByteArray>
#include <QString>

// A certificate authority made at test time with OpenSSL, as a reflector's administrator
// keeps one: it issues the reflector's own TLS certificate and signs node requests.
class SvxTestCa {
public:
    struct Issued {
        QByteArray certPem;
        QByteArray keyPem;
    };

    explicit SvxTestCa(const QString& commonName = QStringLiteral("Test Reflector CA"));
    ~SvxTestCa();
    SvxTestCa(const SvxTestCa&) = delete;
    SvxTestCa& operator=(const SvxTestCa&) = delete;

    QByteArray certPem() const { return caCertPem; }
    // A server certificate for an IP address or a DNS name, valid from notBeforeDays to
    // notAfterDays relative to now (negative values lie in the past).
    Issued issueServer(const QString& subjectAltName, int notBeforeDays = -1, int notAfterDays = 30) const;
    // Signs a node's PEM request as a client certificate; empty if the request is bad.
    QByteArray signCsr(const QByteArray& csrPem) const;
    // Whether the PEM certificate was signed by this authority.
    bool issued(const QByteArray& certPem) const;

    // Subject fields of a PEM request, "CN=...,emailAddress=..." in order, and whether its
    // extensions name a subjectAltName.
    static QString csrSubject(const QByteArray& csrPem);
    static bool csrHasSubjectAltName(const QByteArray& csrPem);

private:
    void* caKey = nullptr;  // EVP_PKEY
    void* caCert = nullptr; // X509
    QByteArray caCertPem;
};
