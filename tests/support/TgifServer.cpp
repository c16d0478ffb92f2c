#include "TgifServer.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QUrl>
#include <QUrlQuery>

namespace {

const QByteArray kCookie = "PHPSESSID=4f1c2a";

WebServer::Reply page(const QByteArray& html)
{
    return {200, "text/html; charset=UTF-8", html, {}};
}

} // namespace

TgifServer::TgifServer(const QByteArray& certPem, const QByteArray& keyPem)
    : WebServer([this](const Request& r) { return answer(r); }, certPem, keyPem),
      side(std::make_unique<WebServer>([this](const Request& r) { return answerSide(r); }))
{
}

QJsonArray TgifServer::sessionList(bool selfCare) const
{
    QJsonArray list;
    for (const Session& s : sessions)
        list.append(selfCare ? QJsonObject{{"uuid", QString::number(s.hotspot)},
                                           {"state", "live"},
                                           {"ts1_talkgroup", qint64(s.ts1)},
                                           {"ts2_talkgroup", qint64(s.ts2)}}
                             : QJsonObject{{"repeater_id", QString::number(s.hotspot)},
                                           {"tg0", QString::number(s.ts1)},
                                           {"tg", QString::number(s.ts2)}});
    return list;
}

WebServer::Reply TgifServer::answer(const Request& request)
{
    const QString path = request.path.section(QLatin1Char('?'), 0, 0);
    const bool signedIn = request.headers.value("cookie").contains(kCookie);
    if (path == QLatin1String("/RPTRR/index.php"))
        return {200, "application/json", QJsonDocument(sessionList(false)).toJson(QJsonDocument::Compact), {}};
    if (path == QLatin1String("/socket.io/"))
        return answerSocketIo(request);
    if (path == QLatin1String("/signin.php") && request.method == "GET")
        return page(R"(<form id="signin"><input id="lcallsign" name="lcallsign">
            <input type="hidden" name="csrf_token"  value="9b2e77c0"></form>)");
    if (path == QLatin1String("/signin.php")) {
        const QUrlQuery form(QString::fromUtf8(request.body));
        const bool ok = form.queryItemValue("lcallsign") == callsign &&
                        form.queryItemValue("lpassword", QUrl::FullyDecoded) == password &&
                        form.queryItemValue("csrf_token") == QLatin1String("9b2e77c0") && !password.isEmpty();
        Reply reply{200,
                    "application/json",
                    ok ? R"({"code":200,"msg":"ok"})" : R"({"code":401,"msg":"Wrong callsign or password"})",
                    {}};
        if (ok)
            reply.headers.append({"Set-Cookie", kCookie + "; path=/; secure"});
        return reply;
    }
    if (path == QLatin1String("/profile.php"))
        return signedIn ? page("<script>\n  var api_token = \"" + apiToken.toUtf8() + "\";\n</script>")
                        : Reply{302, "text/html", "", {{"Location", "/signin.php"}}};
    if (path.startsWith(QLatin1String("/scan")) || path.startsWith(QLatin1String("/assets/ajax/scan")))
        return signedIn ? answerScan(request, path) : Reply{302, "text/html", "", {{"Location", "/signin.php"}}};
    return {404, "text/html", "<h1>Not found</h1>", {}};
}

WebServer::Reply TgifServer::answerScan(const Request& request, const QString& path)
{
    const auto json = [](const QJsonObject& o) {
        return Reply{200, "application/json", QJsonDocument(o).toJson(QJsonDocument::Compact), {}};
    };
    if (path == QLatin1String("/scan_config.php"))
        return page("<script>const cfg = { csrf_token: \"" + csrf.toUtf8() + "\" };</script>");
    if (request.method == "GET" && path.endsWith(QLatin1String("scan_config_read.php")))
        return json(scan);
    if (request.method == "GET" && path.endsWith(QLatin1String("scan_runtime_state.php")))
        return json({{"enabled", scan["enabled"].toInt()}, {"current", 91}});
    if (request.method == "GET" && path.endsWith(QLatin1String("scan_target.php")))
        return json({{"hotspot", scan["hotspot"]}, {"slot", scan["slot"]}});
    const bool isJson = request.headers.value("content-type") == "application/json";
    const QJsonObject body = QJsonDocument::fromJson(request.body).object();
    const QUrlQuery form(QString::fromUtf8(request.body));
    const QString token = isJson ? body["csrf_token"].toString() : form.queryItemValue("csrf_token");
    if (token != csrf)
        return {302, "text/html", "", {{"Location", "/signin.php"}}};
    QJsonObject priorities = scan["priorities"].toObject();
    const QString action = form.queryItemValue("action");
    if (path.endsWith(QLatin1String("scan_toggle.ajax.php")))
        scan["enabled"] = form.queryItemValue("value").toInt();
    else if (isJson)
        scan["hotspot"] = body["hotspot"], scan["slot"] = body["slot"];
    else if (action == QLatin1String("set_dwell"))
        scan["dwellSeconds"] = form.queryItemValue("dwell").toInt();
    else if (action == QLatin1String("add_tg") || action == QLatin1String("update_tg"))
        priorities[form.queryItemValue("tg_id")] = form.queryItemValue("priority").toInt();
    else if (action == QLatin1String("remove_tg"))
        priorities.remove(form.queryItemValue("tg_id"));
    scan["priorities"] = priorities;
    return json({{"ok", 1}});
}

WebServer::Reply TgifServer::answerSocketIo(const Request& request)
{
    const QUrlQuery query(QUrl(request.path).query());
    QString sid = query.queryItemValue(QStringLiteral("sid"));
    if (sid.isEmpty()) {
        sid = QStringLiteral("sid%1").arg(nextSid++);
        const QString open =
            QStringLiteral(R"(0{"sid":"%1","upgrades":["websocket"],"pingInterval":25000,"pingTimeout":5000})")
                .arg(sid);
        pending.insert(sid, {});
        const QString body = QString::number(open.size()) + ':' + open + "2:40";
        return {200, "text/plain; charset=UTF-8", body.toUtf8(), {}};
    }
    if (!pending.contains(sid))
        return {400, "application/json", R"({"code":1,"message":"Session ID unknown"})", {}};
    if (request.method == "POST") {
        const QString body = QString::fromUtf8(request.body);
        const QString packet = body.section(QLatin1Char(':'), 1);
        if (packet == QLatin1String("1")) {
            pending.remove(sid);
            return {200, "text/html", "ok", {}};
        }
        const QJsonArray event = QJsonDocument::fromJson(packet.mid(2).toUtf8()).array();
        const QString name = event.at(0).toString();
        events << name;
        QString out;
        if (name == QLatin1String("handshake")) {
            out = QStringLiteral(R"(42["status",%1])").arg(event.at(1).toString() == apiToken ? 200 : 401);
        } else if (name == QLatin1String("cli-state")) {
            out = QStringLiteral(R"(42["self-care-session",%1])")
                      .arg(QString::fromUtf8(QJsonDocument(sessionList(true)).toJson(QJsonDocument::Compact)));
        } else if (name == QLatin1String("selfcare:settg")) {
            const QJsonObject args = event.at(1).toObject();
            bool found = false;
            for (Session& s : sessions) {
                if (QString::number(s.hotspot) != args["uuid"].toString())
                    continue;
                found = true;
                (args.contains("ts1_talkgroup") ? s.ts1 : s.ts2) =
                    quint32(args.value(args.contains("ts1_talkgroup") ? "ts1_talkgroup" : "ts2_talkgroup").toInteger());
            }
            out = QStringLiteral(R"(42["selfcare:settg",{"status":"%1"}])").arg(found ? "success" : "error");
        }
        if (answerSocket && !out.isEmpty())
            pending[sid] << out;
        return {200, "text/html", "ok", {}};
    }
    if (pending[sid].isEmpty())
        return {200, "text/plain", "", {}, true};
    QString body;
    for (const QString& packet : std::as_const(pending[sid]))
        body += QString::number(packet.size()) + ':' + packet;
    pending[sid].clear();
    return {200, "text/plain; charset=UTF-8", body.toUtf8(), {}};
}

WebServer::Reply TgifServer::answerSide(const Request& request)
{
    static const QRegularExpression route(QStringLiteral("^/api/sessions/update/(\\d+)/([01])/(\\d+)$"));
    const QRegularExpressionMatch m = route.match(request.path);
    for (Session& s : sessions) {
        if (m.hasMatch() && s.hotspot == m.captured(1).toUInt()) {
            const quint32 tg = m.captured(3).toUInt();
            (m.captured(2) == QLatin1String("0") ? s.ts1 : s.ts2) = tg;
            return {200, "text/html", "200", {}};
        }
    }
    return {404, "text/html", "404", {}};
}
