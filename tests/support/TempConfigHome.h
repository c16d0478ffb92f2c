#pragma once

#include <QTemporaryDir>

// Points HOME and the XDG folders at a fresh temporary folder, away from the user's own
// configuration. Create it before the first use of zl::Config::instance().
class TempConfigHome {
public:
    TempConfigHome();
    QString path() const { return dir.path(); }
    // Where zl::Config keeps config.json under this home.
    QString configFile() const;

private:
    QTemporaryDir dir;
};
