#pragma once

#include <QByteArray>
#include <QJsonArray>
#include <QList>
#include <QString>

namespace zl {

// The layouts of the published host lists.
enum class HostFormat {
    Plain, // name, host, port separated by blanks or tabs (M17, NXDN, P25)
    Ysf,   // id;name;description;host;port;…
    Dmr,   // name, DMR-ID, host, password, port
    Dcs,   // name, host (port fixed)
    Aprs,  // host:port;description
};

// One mode's published list.
struct HostSource {
    QString mode;
    QString file;
    HostFormat format;
};

// The modes that have a published list, in the order they are fetched.
const QList<HostSource>& hostSources();
// The source of a mode, or null for a mode without one.
const HostSource* hostSourceFor(const QString& mode);

// The entries of a list as ServerRegistry stores them: objects with id, name, host, port (and a
// password where the list has one). Lines that do not fit the layout are skipped.
QJsonArray parseHostList(const HostSource& source, const QByteArray& body);

} // namespace zl
