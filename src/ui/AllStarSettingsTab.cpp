#include "ui/AllStarSettingsTab.h"

#include "app/Config.h"
#include "ui/FieldCheck.h"
#include "ui/SettingsFields.h"

#include <QJsonArray>
#include <QLineEdit>
#include <QRegularExpression>

namespace {

QString checkNode(const QString& text)
{
    static const QRegularExpression digits(QStringLiteral("^[0-9]{1,7}$"));
    return digits.match(text.trimmed()).hasMatch() ? QString()
                                                   : QStringLiteral("A node number has one to seven digits.");
}

} // namespace

AllStarSettingsTab::AllStarSettingsTab(QWidget* parent)
    : EntryListTab(QStringLiteral("allstar"), QStringLiteral("AllStar node"), parent)
{
    zl::ui::SettingsFields* fields = entryFields();
    fields->text(QStringLiteral("name"), QStringLiteral("Name"));
    fields->text(QStringLiteral("host"), QStringLiteral("Host or IP"), zl::ui::checkHost);
    fields->number(QStringLiteral("port"), QStringLiteral("Port"), 1, 65535, 4569);
    fields->text(QStringLiteral("node"), QStringLiteral("Node"), checkNode);
    fields->text(QStringLiteral("username"), QStringLiteral("IAX username"));
    fields->secret(QStringLiteral("password"), QStringLiteral("IAX password"));
    fields->text(QStringLiteral("callsign"), QStringLiteral("Callsign"), zl::ui::unlessEmpty(zl::ui::checkCallsign));
    fields->flag(QStringLiteral("enabled"), QStringLiteral("Connect this node automatically"));
    reload();
}

QList<QJsonObject> AllStarSettingsTab::readEntries(const QJsonObject& section) const
{
    return zl::configObjects(section.value(QStringLiteral("servers")).toArray(), QStringLiteral("allstar.servers"));
}

void AllStarSettingsTab::writeEntries(QJsonObject& section, const QList<QJsonObject>& entries) const
{
    QJsonArray servers;
    for (const QJsonObject& entry : entries) {
        // An entry without host and node names nothing to link to.
        if (entry.value(QStringLiteral("host")).toString().isEmpty() &&
            entry.value(QStringLiteral("node")).toVariant().toString().isEmpty())
            continue;
        servers.append(entry);
    }
    section.insert(QStringLiteral("servers"), servers);
}

QString AllStarSettingsTab::entryText(const QJsonObject& entry) const
{
    const QString name = entry.value(QStringLiteral("name")).toString();
    const QString node = entry.value(QStringLiteral("node")).toVariant().toString();
    const QString host = entry.value(QStringLiteral("host")).toString();
    return QStringLiteral("%1 — node %2 at %3%4")
        .arg(name.isEmpty() ? QStringLiteral("(unnamed)") : name, node.isEmpty() ? QStringLiteral("?") : node,
             host.isEmpty() ? QStringLiteral("?") : host,
             entry.value(QStringLiteral("enabled")).toBool() ? QString() : QStringLiteral("  (off)"));
}
