#include "aprs/AprsBeacon.h"

#include "app/Config.h"
#include "aprs/AprsClient.h"

#include <QDebug>
#include <QJsonObject>
#include <QTimer>

#include <algorithm>

namespace zl::aprs {

namespace {

QJsonObject section()
{
    return zl::Config::instance().section(QStringLiteral("aprs"));
}

// The first character of a symbol field, 0 when it is empty or not Latin-1.
ulong symbolOf(const QString& field)
{
    return field.isEmpty() || field.at(0).unicode() > 255 ? 0 : field.at(0).unicode();
}

} // namespace

AprsBeacon::AprsBeacon(AprsClient* client, QObject* parent) : QObject(parent), client(client), timer(new QTimer(this))
{
    connect(timer, &QTimer::timeout, this, &AprsBeacon::onTick);
}

void AprsBeacon::reload()
{
    const QJsonObject aprs = section();
    const bool enabled = aprs.value(QStringLiteral("beacon_enabled")).toBool(false);
    const int seconds = std::clamp(aprs.value(QStringLiteral("beacon_interval_s")).toInt(600), 30, 3600);
    timer->setInterval(seconds * msPerSecond_);
    if (!enabled) {
        stop();
        return;
    }
    if (timer->isActive())
        return;
    qInfo().noquote() << "AprsBeacon: started, interval=" << seconds << "s";
    timer->start();
    QTimer::singleShot(2 * msPerSecond_, this, &AprsBeacon::onTick);
}

void AprsBeacon::stop()
{
    if (!timer->isActive())
        return;
    timer->stop();
    qInfo() << "AprsBeacon: stopped";
}

void AprsBeacon::onTick()
{
    if (!client || client->state() != AprsClient::State::LoggedIn)
        return;
    const QJsonObject aprs = section();
    const double lat = aprs.value(QStringLiteral("lat")).toDouble(0.0);
    const double lon = aprs.value(QStringLiteral("lon")).toDouble(0.0);
    if (lat == 0.0 && lon == 0.0) {
        qInfo() << "AprsBeacon: skip — lat/lon 0,0 (set in Settings → APRS)";
        return;
    }
    const ulong table = symbolOf(aprs.value(QStringLiteral("symbol_table")).toString(QStringLiteral("/")));
    const ulong code = symbolOf(aprs.value(QStringLiteral("symbol_code")).toString(QStringLiteral("-")));
    const QString comment = aprs.value(QStringLiteral("beacon_comment")).toString();
    client->sendPosition(lat, lon, table, code, comment);
    qInfo().noquote() << "AprsBeacon: position sent lat=" << lat << "lon=" << lon
                      << "sym=" << QString(QChar(char16_t(table))) + QChar(char16_t(code)) << "comment=" << comment;
}

} // namespace zl::aprs
