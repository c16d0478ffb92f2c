#pragma once

#include <QJsonObject>
#include <QList>
#include <QMetaType>
#include <QObject>
#include <QString>

#include <functional>
#include <utility>

class QNetworkReply;

namespace zl::dmr {

class TgifLogin;

// The TGIF site's custom scan as the site stores it.
struct ScanConfig {
    bool enabled = false;
    int dwellSeconds = 10;
    QList<std::pair<quint32, int>> talkgroups; // (talkgroup, priority), highest priority (1) first
    quint32 current = 0;
    QString hotspot;
    int slot = 0;
};

// Reads and changes the custom scan of a TGIF account through the site's own pages, signed in as
// a browser. A failed login locks it for 30 minutes: the site answers repeated wrong passwords
// with a captcha that a program cannot solve.
class TgifScanClient : public QObject {
    Q_OBJECT

public:
    explicit TgifScanClient(QObject* parent = nullptr);

    void setAccount(const QString& host, const QString& callsign, const QString& password);
    void refresh();
    void setEnabled(bool on);
    void setDwell(int seconds);
    void addTalkgroup(quint32 tg, int priority);
    void removeTalkgroup(quint32 tg);
    void setPriority(quint32 tg, int priority);
    void setTarget(quint32 hotspot, int slot);

    void setClockForTests(std::function<qint64()> now) { clock = std::move(now); }

signals:
    void configFetched(const zl::dmr::ScanConfig& cfg);
    void actionDone(bool ok, const QString& msg);
    void errorReported(const QString& msg);

private:
    using Job = std::function<void()>;
    void withSession(const Job& job, bool afterLogin = false);
    // retried: the second attempt after a lapsed session, which gets no third.
    void postForm(const QString& path, const QList<std::pair<QString, QString>>& fields, const QString& label,
                  bool retried = false);
    void postJson(const QString& path, const QByteArray& body, const QString& label, bool retried = false);
    void onActionReply(QNetworkReply* reply, const QString& label, const Job& again);
    void lockAfter(const QString& message);
    void read(const QString& path, const std::function<void(bool, const QJsonObject&)>& done);

    TgifLogin* login;
    QString host;
    QString callsign;
    QString password;
    QString csrfToken;
    qint64 lockedUntilMs = 0;
    QString lastFailure;
    std::function<qint64()> clock;
};

} // namespace zl::dmr

Q_DECLARE_METATYPE(zl::dmr::ScanConfig)
