#include "dmr/TgifLogin.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QNetworkCookieJar>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QRegularExpression>
#include <QUrlQuery>

#include <memory>

namespace zl::dmr {

namespace {

constexpr int kTimeoutMs = 15000;

QNetworkRequest pageRequest(const QString& url)
{
    QNetworkRequest request{QUrl(url)};
    request.setTransferTimeout(kTimeoutMs);
    return request;
}

} // namespace

TgifLogin::TgifLogin(QObject* parent) : QObject(parent), network(new QNetworkAccessManager(this))
{
    network->setCookieJar(new QNetworkCookieJar(network));
    network->setRedirectPolicy(QNetworkRequest::NoLessSafeRedirectPolicy);
}

void TgifLogin::login(const QString& host, const QString& callsign, const QString& password)
{
    if (host.isEmpty() || callsign.isEmpty() || password.isEmpty()) {
        emit failed(QStringLiteral("TGIF login: missing host, callsign or password"));
        return;
    }
    qInfo().noquote() << "TGIF login: fetching signin page for" << host;
    const QString url = QStringLiteral("https://%1/signin.php").arg(host);
    QNetworkReply* page = network->get(pageRequest(url));
    connect(page, &QNetworkReply::finished, this, [this, page, url, host, callsign, password] {
        page->deleteLater();
        static const QRegularExpression csrf(QStringLiteral(R"re(name="csrf_token"\s+value="([^"]+)")re"));
        const QString form = csrf.match(QString::fromUtf8(page->readAll())).captured(1);
        QUrlQuery fields;
        fields.addQueryItem(QStringLiteral("lcallsign"), callsign);
        fields.addQueryItem(QStringLiteral("lpassword"), password);
        fields.addQueryItem(QStringLiteral("csrf_token"), form);
        QNetworkRequest request = pageRequest(url);
        request.setHeader(QNetworkRequest::ContentTypeHeader, QStringLiteral("application/x-www-form-urlencoded"));
        request.setRawHeader("X-Requested-With", "XMLHttpRequest");
        QNetworkReply* reply = network->post(request, fields.query(QUrl::FullyEncoded).toUtf8());
        connect(reply, &QNetworkReply::finished, this, [this, reply, host, callsign] {
            reply->deleteLater();
            const QJsonObject answer = QJsonDocument::fromJson(reply->readAll()).object();
            if (reply->error() != QNetworkReply::NoError || answer.value(QStringLiteral("code")).toInt() != 200) {
                QString why = answer.value(QStringLiteral("msg")).toString();
                if (why.isEmpty())
                    why = reply->errorString();
                emit failed(QStringLiteral("TGIF login failed for %1: %2").arg(callsign, why));
                return;
            }
            qInfo().noquote() << "TGIF login OK for" << callsign << "— fetching api_token";
            fetchToken(host);
        });
    });
}

void TgifLogin::loginThen(const QString& host, const QString& callsign, const QString& password,
                          const std::function<void(const QString&)>& onToken,
                          const std::function<void(const QString&)>& onFailure)
{
    auto connections = std::make_shared<QList<QMetaObject::Connection>>();
    const auto done = [connections] {
        for (const QMetaObject::Connection& c : std::as_const(*connections))
            QObject::disconnect(c);
    };
    *connections << connect(this, &TgifLogin::tokenFetched, this, [done, onToken](const QString& token) {
        done();
        onToken(token);
    });
    *connections << connect(this, &TgifLogin::failed, this, [done, onFailure](const QString& msg) {
        done();
        onFailure(msg);
    });
    login(host, callsign, password);
}

void TgifLogin::fetchToken(const QString& host)
{
    QNetworkReply* reply = network->get(pageRequest(QStringLiteral("https://%1/profile.php").arg(host)));
    connect(reply, &QNetworkReply::finished, this, [this, reply] {
        reply->deleteLater();
        if (reply->error() != QNetworkReply::NoError) {
            emit failed(QStringLiteral("TGIF login: could not fetch profile.php — ") + reply->errorString());
            return;
        }
        static const QRegularExpression tokenPattern(QStringLiteral(R"re(var\s+api_token\s*=\s*"([^"]*)")re"));
        const QString token = tokenPattern.match(QString::fromUtf8(reply->readAll())).captured(1);
        if (token.isEmpty()) {
            emit failed(QStringLiteral("TGIF login: profile.php gav ingen api_token (inloggad men tom?)"));
            return;
        }
        qInfo().noquote() << "TGIF api_token fetched (" << token.size() << "chars )";
        emit tokenFetched(token);
    });
}

} // namespace zl::dmr
