#include "dmr/TgifScanClient.h"

#include "dmr/TgifLogin.h"
#include "dmr/WebReply.h"

#include <QDateTime>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QRegularExpression>
#include <QUrlQuery>
#include <QVariant>

#include <algorithm>
#include <memory>

namespace zl::dmr {

namespace {

constexpr int kTimeoutMs = 15000;
constexpr qint64 kLockMs = 30 * 60 * 1000;
const QString kConfigAjax = QStringLiteral("/assets/ajax/scan_config.ajax.php");

// The site sends a signed-out visitor to its sign-in form.
bool loggedOut(QNetworkReply* reply, const QByteArray& body)
{
    const int status = httpStatus(reply);
    const QString target = reply->attribute(QNetworkRequest::RedirectionTargetAttribute).toUrl().toString();
    return (status >= 300 && status <= 399 && target.contains(QLatin1String("signin.php"))) ||
           body.contains("id=\"lcallsign\"");
}

} // namespace

TgifScanClient::TgifScanClient(QObject* parent)
    : QObject(parent), login(new TgifLogin(this)), clock([] { return QDateTime::currentMSecsSinceEpoch(); })
{
    qRegisterMetaType<zl::dmr::ScanConfig>();
}

void TgifScanClient::setAccount(const QString& newHost, const QString& call, const QString& pass)
{
    if (newHost != host || call != callsign || pass != password)
        csrfToken.clear();
    host = newHost.trimmed();
    callsign = call.trimmed();
    password = pass;
}

void TgifScanClient::lockAfter(const QString& message)
{
    lockedUntilMs = clock() + kLockMs;
    lastFailure = message;
    emit errorReported(message + QStringLiteral(" — no new attempts for 30 min (TGIF captcha lock). Check the "
                                                "password under Settings → API → TGIF."));
}

void TgifScanClient::withSession(const Job& job, bool afterLogin)
{
    if (host.isEmpty() || callsign.isEmpty() || password.isEmpty()) {
        emit errorReported(QStringLiteral("Scan: missing host or account (Settings → API → TGIF)"));
        return;
    }
    const qint64 left = lockedUntilMs - clock();
    if (left > 0) {
        emit errorReported(QStringLiteral("TGIF: login blocked for another %1 min after a failed attempt — %2")
                               .arg((left + 59999) / 60000)
                               .arg(lastFailure));
        return;
    }
    if (!csrfToken.isEmpty()) {
        job();
        return;
    }
    QNetworkRequest request(QUrl(QStringLiteral("https://%1/scan_config.php").arg(host)));
    request.setTransferTimeout(kTimeoutMs);
    QNetworkReply* reply = login->session()->get(request);
    connect(reply, &QNetworkReply::finished, this, [this, reply, job, afterLogin] {
        reply->deleteLater();
        const QByteArray body = reply->readAll();
        if (loggedOut(reply, body) && !afterLogin) {
            login->loginThen(
                host, callsign, password, [this, job](const QString&) { withSession(job, true); },
                [this](const QString& msg) { lockAfter(msg); });
            return;
        }
        static const QRegularExpression token(QStringLiteral(R"re(csrf_token:\s*"([0-9a-fA-F]+)")re"));
        csrfToken = token.match(QString::fromUtf8(body)).captured(1);
        if (csrfToken.isEmpty()) {
            emit errorReported(QStringLiteral("Scan: no csrf_token found on scan_config.php (logged out?)"));
            return;
        }
        job();
    });
}

void TgifScanClient::onActionReply(QNetworkReply* reply, const QString& label, const Job& again)
{
    reply->deleteLater();
    const QByteArray body = reply->readAll();
    if (loggedOut(reply, body) && again) {
        // The site expired the session (or its form token): one more try with a fresh one.
        csrfToken.clear();
        withSession(again);
        return;
    }
    const QJsonObject answer = QJsonDocument::fromJson(body).object();
    const bool ok = reply->error() == QNetworkReply::NoError && answer.value(QStringLiteral("ok")).toInt() == 1;
    QString reason = answer.value(QStringLiteral("msg")).toString();
    if (reason.isEmpty())
        reason = shownBody(body);
    qInfo().noquote() << "Scan" << label << (ok ? "OK" : "failed:") << (ok ? QString() : reason);
    emit actionDone(ok, ok ? label + QStringLiteral(" OK") : label + QStringLiteral(" failed: ") + reason);
    if (ok)
        refresh();
}

void TgifScanClient::postForm(const QString& path, const QList<std::pair<QString, QString>>& fields,
                              const QString& label, bool retried)
{
    withSession([this, path, fields, label, retried] {
        QUrlQuery query;
        for (const auto& [name, value] : fields)
            query.addQueryItem(name, value);
        query.addQueryItem(QStringLiteral("csrf_token"), csrfToken);
        QNetworkRequest request(QUrl(QStringLiteral("https://%1%2").arg(host, path)));
        request.setTransferTimeout(kTimeoutMs);
        request.setHeader(QNetworkRequest::ContentTypeHeader, QStringLiteral("application/x-www-form-urlencoded"));
        request.setRawHeader("X-Requested-With", "XMLHttpRequest");
        QNetworkReply* reply = login->session()->post(request, query.query(QUrl::FullyEncoded).toUtf8());
        const Job again = retried ? Job{} : Job([this, path, fields, label] { postForm(path, fields, label, true); });
        connect(reply, &QNetworkReply::finished, this,
                [this, reply, label, again] { onActionReply(reply, label, again); });
    });
}

void TgifScanClient::postJson(const QString& path, const QByteArray& body, const QString& label, bool retried)
{
    withSession([this, path, body, label, retried] {
        QJsonObject object = QJsonDocument::fromJson(body).object();
        object.insert(QStringLiteral("csrf_token"), csrfToken);
        QNetworkRequest request(QUrl(QStringLiteral("https://%1%2").arg(host, path)));
        request.setTransferTimeout(kTimeoutMs);
        request.setHeader(QNetworkRequest::ContentTypeHeader, QStringLiteral("application/json"));
        QNetworkReply* reply = login->session()->post(request, QJsonDocument(object).toJson(QJsonDocument::Compact));
        const Job again = retried ? Job{} : Job([this, path, body, label] { postJson(path, body, label, true); });
        connect(reply, &QNetworkReply::finished, this,
                [this, reply, label, again] { onActionReply(reply, label, again); });
    });
}

void TgifScanClient::setEnabled(bool on)
{
    postForm(QStringLiteral("/assets/ajax/scan_toggle.ajax.php"), {{QStringLiteral("value"), on ? "1" : "0"}},
             on ? QStringLiteral("custom scan ON") : QStringLiteral("custom scan OFF"));
}

void TgifScanClient::setDwell(int seconds)
{
    postForm(
        kConfigAjax,
        {{QStringLiteral("action"), QStringLiteral("set_dwell")}, {QStringLiteral("dwell"), QString::number(seconds)}},
        QStringLiteral("dwell %1 s").arg(seconds));
}

void TgifScanClient::addTalkgroup(quint32 tg, int priority)
{
    postForm(kConfigAjax,
             {{QStringLiteral("action"), QStringLiteral("add_tg")},
              {QStringLiteral("tg_id"), QString::number(tg)},
              {QStringLiteral("priority"), QString::number(priority)}},
             QStringLiteral("add TG %1 (prio %2)").arg(tg).arg(priority));
}

void TgifScanClient::removeTalkgroup(quint32 tg)
{
    postForm(kConfigAjax,
             {{QStringLiteral("action"), QStringLiteral("remove_tg")}, {QStringLiteral("tg_id"), QString::number(tg)}},
             QStringLiteral("remove TG %1").arg(tg));
}

void TgifScanClient::setPriority(quint32 tg, int priority)
{
    postForm(kConfigAjax,
             {{QStringLiteral("action"), QStringLiteral("update_tg")},
              {QStringLiteral("tg_id"), QString::number(tg)},
              {QStringLiteral("priority"), QString::number(priority)}},
             QStringLiteral("TG %1 → prio %2").arg(tg).arg(priority));
}

void TgifScanClient::setTarget(quint32 hotspot, int slot)
{
    const QJsonObject body{{QStringLiteral("hotspot"), QString::number(hotspot)}, {QStringLiteral("slot"), slot}};
    postJson(QStringLiteral("/assets/ajax/scan_target.php"), QJsonDocument(body).toJson(QJsonDocument::Compact),
             QStringLiteral("scan target hotspot %1 TS%2").arg(hotspot).arg(slot));
}

void TgifScanClient::read(const QString& path, const std::function<void(bool, const QJsonObject&)>& done)
{
    QNetworkRequest request(QUrl(QStringLiteral("https://%1%2").arg(host, path)));
    request.setTransferTimeout(kTimeoutMs);
    request.setRawHeader("Accept", "application/json");
    QNetworkReply* reply = login->session()->get(request);
    connect(reply, &QNetworkReply::finished, this, [reply, done] {
        reply->deleteLater();
        const QJsonDocument doc = QJsonDocument::fromJson(reply->readAll());
        done(reply->error() == QNetworkReply::NoError && doc.isObject(), doc.object());
    });
}

void TgifScanClient::refresh()
{
    withSession([this] {
        read(QStringLiteral("/assets/ajax/scan_config_read.php"), [this](bool ok, const QJsonObject& config) {
            if (!ok) {
                emit errorReported(QStringLiteral("Scan: could not read scan_config_read.php"));
                return;
            }
            auto cfg = std::make_shared<ScanConfig>();
            cfg->dwellSeconds = config.value(QStringLiteral("dwellSeconds")).toInt(10);
            const QJsonObject priorities = config.value(QStringLiteral("priorities")).toObject();
            for (auto it = priorities.begin(); it != priorities.end(); ++it) {
                bool number = false;
                const quint32 tg = it.key().toUInt(&number);
                if (number)
                    cfg->talkgroups.append({tg, it.value().toVariant().toInt()});
            }
            std::sort(cfg->talkgroups.begin(), cfg->talkgroups.end(), [](const auto& a, const auto& b) {
                return std::pair(a.second, a.first) < std::pair(b.second, b.first);
            });
            read(QStringLiteral("/assets/ajax/scan_runtime_state.php"), [this, cfg](bool, const QJsonObject& state) {
                cfg->enabled = state.value(QStringLiteral("enabled")).toVariant().toInt() == 1;
                cfg->current = state.value(QStringLiteral("current")).toVariant().toUInt();
                read(QStringLiteral("/assets/ajax/scan_target.php"), [this, cfg](bool, const QJsonObject& target) {
                    cfg->hotspot = target.value(QStringLiteral("hotspot")).toVariant().toString();
                    cfg->slot = target.value(QStringLiteral("slot")).toVariant().toInt();
                    qInfo().noquote() << "Scan config:" << cfg->talkgroups.size() << "TG, dwell" << cfg->dwellSeconds
                                      << "enabled" << cfg->enabled << "current" << cfg->current << "target"
                                      << cfg->hotspot << "TS" << cfg->slot;
                    emit configFetched(*cfg);
                });
            });
        });
    });
}

} // namespace zl::dmr
