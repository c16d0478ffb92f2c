#pragma once

#include <QString>

namespace zl {

// Opens the console sink and, when general.log_enabled, a new file for this run;
// installs the Qt message handler that routes qDebug/qInfo/qWarning into both.
void initLog();

// The folder for log files: logDir when set, otherwise "log" beside a "build" folder
// or below the program's own folder. Creates the folder.
QString logFolder(const QString& logDir, const QString& appDirPath);

} // namespace zl
