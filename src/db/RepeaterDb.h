#pragma once

#include <QHash>
#include <QObject>
#include <QString>

#include <optional>

class QNetworkAccessManager;
class QNetworkReply;

namespace zl {

// One repeater of the public repeater lists.
struct RepeaterEntry {
    int id = 0;
    QString callsign;
    QString city;
    QString state;
    QString country;
    QString frequency;
    QString ipscNetwork;
};

// The public repeater lists of DMR, NXDN, P25 and D-STAR: a copy of each in the cache folder
// and the same in memory by repeater id, for pages that want a repeater's place.
class RepeaterDb : public QObject {
    Q_OBJECT

public:
    using Table = QHash<int, RepeaterEntry>;

    explicit RepeaterDb(QObject* parent = nullptr);

    void loadFromDisk();
    // Downloads each list whose copy is older than `hours`; 0 downloads all four and accepts a
    // list smaller than the one in use.
    void refreshIfOlder(int hours);

    std::optional<RepeaterEntry> find(const QString& mode, int id) const;
    qsizetype count(const QString& mode) const { return repeaters.value(mode).size(); }

    // The entries of a list; nullopt when the body is not the published JSON object with its
    // "rptrs" array.
    static std::optional<Table> parse(const QByteArray& body);
    static QString pathFor(const QString& mode);
    static QString baseUrl();
    void setTransferTimeout(int ms) { timeoutMs = ms; }

signals:
    void refreshed(const QString& mode, int repeaters);
    void failed(const QString& mode, const QString& reason);

private:
    struct Source {
        QString mode;
        QString path;
        QString file;
    };
    static const QList<Source>& sources();
    void readFile(const Source& source);
    void onReply(const Source& source, QNetworkReply* reply, bool forced);

    QNetworkAccessManager* net;
    QHash<QString, Table> repeaters;
    int timeoutMs = 30000;
};

} // namespace zl
