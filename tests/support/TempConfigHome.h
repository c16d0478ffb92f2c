#pragma once

#include <QJsonObject>
#include <QTemporaryDir>

// Points HOME and the XDG folders at a fresh temporary folder, away from the user's own
// configuration, with the public directories pointed at a closed loopback port so that no test
// reaches out. Create it before the first use of zl::Config::instance().
class TempConfigHome {
public:
    TempConfigHome();
    QString path() const { return dir.path(); }
    // Where zl::Config keeps config.json under this home.
    QString configFile() const;
    // The "directories" section that sends every download to a closed loopback port.
    static QJsonObject offlineDirectories();

private:
    QTemporaryDir dir;
};
