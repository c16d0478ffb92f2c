#pragma once

#include <QJsonObject>
#include <QTemporaryDir>

// Points XDG_CONFIG_HOME, XDG_CACHE_HOME and HOME at a fresh temporary folder for the
// life of the object, so that tests never touch the user's own configuration.
// Create it before the first use of zl::Config::instance(). The configuration it starts with
// points the public directories at a closed loopback port, so that no test reaches out.
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
