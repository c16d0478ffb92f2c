#pragma once

#include <QObject>
#include <QString>

#include <functional>

class QNetworkAccessManager;

namespace zl::dmr {

// Signs in to the TGIF web site as a browser does (form token, callsign, password) and reads the
// api_token from the profile page. The cookie jar it keeps is the session.
class TgifLogin : public QObject {
    Q_OBJECT

public:
    explicit TgifLogin(QObject* parent = nullptr);

    void login(const QString& host, const QString& callsign, const QString& password);
    // A login whose outcome goes to these handlers alone, each run at most once.
    void loginThen(const QString& host, const QString& callsign, const QString& password,
                   const std::function<void(const QString& token)>& onToken,
                   const std::function<void(const QString& msg)>& onFailure);
    QNetworkAccessManager* session() const { return network; }

signals:
    void tokenFetched(const QString& token);
    void failed(const QString& msg);

private:
    void fetchToken(const QString& host);

    QNetworkAccessManager* network;
};

} // namespace zl::dmr
