#pragma once

#include <QByteArray>
#include <QString>

class QNetworkAccessManager;
class QNetworkReply;

namespace zl {

// What the downloaded directories (host lists, user, repeater and talkgroup data) share: where
// their files live, how old they are, how they are fetched and when a download must not
// replace what the user already has.

// The file in the cache folder, which is created on the way.
QString directoryCachePath(const QString& fileName);

// The base URL of a public endpoint, from the "directories" section of the configuration
// (key `key`), else `fallback`. Tests and mirrors point these elsewhere.
QString directoryBaseUrl(const QString& key, const QString& fallback);

// The file exists and is not empty, and its ".stamp" holds a time less than `hours` ago.
// With hours 0 nothing is fresh.
bool isFresh(const QString& path, int hours);
// Writes the current local time into the ".stamp" beside `path`.
void writeStamp(const QString& path);
// Replaces the file as a whole, through a temporary file and a rename; false if nothing changed.
bool replaceFile(const QString& path, const QByteArray& data);

// A GET with the program's User-Agent and a transfer timeout, owned by the caller.
QNetworkReply* getDirectory(QNetworkAccessManager* net, const QString& url, int timeoutMs);

// What went wrong with a download that failed: Qt's words, except for the transfer timeout,
// which Qt reports as a cancelled operation.
QString downloadError(const QNetworkReply* reply, int timeoutMs);

// Why a body that came with HTTP success is still no list: cut short of its Content-Length, or
// an HTML page (a portal or error page served with status 200). Empty when it looks whole.
QString bodyProblem(const QString& what, const QNetworkReply* reply, const QByteArray& body);

// Why a list of `entries` must not replace one of `had` entries: an empty list never does, one
// of less than half the old size only when the user asked for it (`forced`): that is a cut
// download far more often than a real shrink. Empty when it may.
QString shrinkProblem(const QString& what, qsizetype entries, qsizetype had, bool forced);

// The name of the file at the end of a URL, for messages ("user.csv").
QString urlFileName(const QString& url);

} // namespace zl
