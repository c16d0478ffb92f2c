#pragma once

#include <QString>
#include <QStringList>

namespace zl {

// Opens the console sink and, when general.log_enabled, a new file for this run;
// installs the Qt message handler that routes qDebug/qInfo/qWarning into both.
void initLog();

// Older log files than the newest this many are removed at start: a Pi's SD card is small.
constexpr int kKeptLogFiles = 30;

// The folders tried for the log file, in order: logDir when set; "log" beside a "build"
// folder or below the program's own folder; the user's state folder
// ($XDG_STATE_HOME/zephyrlake/log). Creates nothing.
QStringList logFolders(const QString& logDir, const QString& appDirPath);

// Keeps the newest `keep` zl-*.log files of a folder and removes the rest.
void pruneLogs(const QString& folder, int keep);

} // namespace zl
