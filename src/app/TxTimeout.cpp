#include "app/TxTimeout.h"

#include "app/Config.h"

#include <QTimer>

namespace zl {

TxTimeout::TxTimeout(QObject* parent) : QObject(parent), warningTimer(new QTimer(this)), limitTimer(new QTimer(this))
{
    warningTimer->setSingleShot(true);
    limitTimer->setSingleShot(true);
    connect(warningTimer, &QTimer::timeout, this, &TxTimeout::warning);
    connect(limitTimer, &QTimer::timeout, this, [this] {
        qInfo().noquote() << "TxTimeout: transmission ended after" << limitSeconds << "s";
        emit expired(QStringLiteral("TX time-out after %1 s").arg(limitSeconds));
    });
}

void TxTimeout::start()
{
    const QJsonValue setting =
        Config::instance().section(QStringLiteral("general")).value(QStringLiteral("tx_timeout_s"));
    limitSeconds = qMax(0, setting.toInt(kDefaultSeconds));
    stop();
    if (limitSeconds == 0)
        return;
    limitTimer->start(limitSeconds * msPerSecond_);
    if (limitSeconds > kWarningSeconds)
        warningTimer->start((limitSeconds - kWarningSeconds) * msPerSecond_);
}

void TxTimeout::stop()
{
    warningTimer->stop();
    limitTimer->stop();
}

bool TxTimeout::running() const
{
    return limitTimer->isActive();
}

} // namespace zl
