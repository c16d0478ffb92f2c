#include "ui/SvxLinkSettingsTab.h"

#include "svx/SvxReflectorConfig.h"
#include "ui/FieldCheck.h"
#include "ui/SettingsFields.h"

#include <QLineEdit>
#include <QRegularExpression>
#include <QSpinBox>

namespace {

// On the card host and port are fields of their own; stored, they make up the entry's key.
const QString kHost = QStringLiteral("host");
const QString kPort = QStringLiteral("port");
const QString kStoredKey = QStringLiteral("stored_key");
constexpr int kDefaultPort = 5300;

QString checkTalkGroups(const QString& text)
{
    static const QRegularExpression separators(QStringLiteral("[,\\s]+"));
    for (const QString& part : text.split(separators, Qt::SkipEmptyParts)) {
        bool ok = false;
        part.toUInt(&ok, 10);
        if (!ok)
            return QStringLiteral("\"%1\" is not a talk group number.").arg(part);
    }
    return {};
}

} // namespace

SvxLinkSettingsTab::SvxLinkSettingsTab(QWidget* parent)
    : EntryListTab(QStringLiteral("svxlink"), QStringLiteral("reflector"), parent)
{
    zl::ui::SettingsFields* fields = entryFields();
    fields->text(QStringLiteral("name"), QStringLiteral("Name"));
    fields->text(kHost, QStringLiteral("Host or IP"), zl::ui::checkHost);
    fields->number(kPort, QStringLiteral("Port"), 1, 65535, kDefaultPort);
    fields->text(QStringLiteral("callsign"), QStringLiteral("Callsign"), zl::ui::unlessEmpty(zl::ui::checkCallsign))
        ->setPlaceholderText(QStringLiteral("empty = the identity's"));
    fields->secret(QStringLiteral("auth_key"), QStringLiteral("Auth key"));
    fields->choice(QStringLiteral("protocol"), QStringLiteral("Protocol"), {QStringLiteral("v2"), QStringLiteral("v3")},
                   QStringLiteral("v2"));
    fields->number(QStringLiteral("tg"), QStringLiteral("Talk group"), 0, 2147483647, 0);
    fields->text(QStringLiteral("monitor_tgs"), QStringLiteral("Monitored talk groups"), checkTalkGroups)
        ->setPlaceholderText(QStringLiteral("e.g. 240, 2402"));
    fields->number(QStringLiteral("hang_time"), QStringLiteral("Hang time (s)"), 0, 3600, 30);
    fields->number(QStringLiteral("udp_heartbeat_s"), QStringLiteral("UDP heartbeat (s)"), 1, 120, 15);
    fields->text(QStringLiteral("cert_email"), QStringLiteral("Certificate e-mail"));
    fields->text(QStringLiteral("cert_desc"), QStringLiteral("Certificate description"));
    fields->text(QStringLiteral("portal_url"), QStringLiteral("Status page URL"));
    fields->number(QStringLiteral("status_port"), QStringLiteral("Status port"), 0, 65535, 0)
        ->setSpecialValueText(QStringLiteral("none"));
    fields->flag(QStringLiteral("enabled"), QStringLiteral("Connect this reflector automatically"));

    zl::ui::SettingsFields* own = sectionFields();
    own->text(QStringLiteral("node_info_file"), QStringLiteral("Node info file (JSON)"))
        ->setPlaceholderText(QStringLiteral("sent to every reflector at login"));
    reload();
}

QList<QJsonObject> SvxLinkSettingsTab::readEntries(const QJsonObject& section) const
{
    QList<QJsonObject> entries;
    const QJsonObject servers = section.value(QStringLiteral("servers")).toObject();
    for (auto it = servers.begin(); it != servers.end(); ++it) {
        QJsonObject entry = it.value().toObject();
        const auto [host, port] = zl::svx::splitReflectorKey(it.key());
        entry.insert(kHost, host);
        entry.insert(kPort, int(port));
        entry.insert(kStoredKey, it.key());
        entries.append(entry);
    }
    return entries;
}

void SvxLinkSettingsTab::writeEntries(QJsonObject& section, const QList<QJsonObject>& entries) const
{
    QJsonObject servers;
    for (QJsonObject entry : entries) {
        const QString host = entry.take(kHost).toString().trimmed();
        const int port = entry.take(kPort).toInt(kDefaultPort);
        const QString stored = entry.take(kStoredKey).toString();
        if (host.isEmpty())
            continue;
        // An unchanged address keeps its key: the certificates and the active row are found by it.
        const auto [storedHost, storedPort] = zl::svx::splitReflectorKey(stored);
        QString key = stored;
        if (stored.isEmpty() || storedHost != host || storedPort != port)
            key = port == kDefaultPort ? host : QStringLiteral("%1:%2").arg(host).arg(port);
        servers.insert(key, entry);
    }
    section.insert(QStringLiteral("servers"), servers);
}

QString SvxLinkSettingsTab::entryText(const QJsonObject& entry) const
{
    const QString name = entry.value(QStringLiteral("name")).toString();
    const QString host = entry.value(kHost).toString();
    const QString address = QStringLiteral("%1:%2")
                                .arg(host.isEmpty() ? QStringLiteral("?") : host)
                                .arg(entry.value(kPort).toInt(kDefaultPort));
    return QStringLiteral("%1 — %2%3")
        .arg(name.isEmpty() ? address : name, address,
             entry.value(QStringLiteral("enabled")).toBool() ? QString() : QStringLiteral("  (off)"));
}
