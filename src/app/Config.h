#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <QObject>
#include <QString>

namespace zl {

// All persistent settings: one JSON object in memory, written whole to config.json.
// Reads never fail, writes never report, and every change is announced by configChanged().
class Config : public QObject {
    Q_OBJECT

public:
    static Config& instance();

    // filePath empty: config.json in the application's configuration folder.
    explicit Config(const QString& filePath = {});

    QString path() const;

    QJsonObject section(const QString& name) const;
    void setSection(const QString& name, const QJsonObject& value);
    void setSectionSilent(const QString& name, const QJsonObject& value);
    void save();

    QString callsign() const;
    void setCallsign(const QString& callsign);
    QString defaultMode() const;
    void setDefaultMode(const QString& mode);

    QByteArray windowGeometry(const QString& name) const;
    QByteArray windowState(const QString& name) const;
    void setWindowGeometry(const QString& name, const QByteArray& geometry);
    void setWindowState(const QString& name, const QByteArray& state);

signals:
    void configChanged();

private:
    void load();
    void setGeneralString(const QString& key, const QString& value);
    QByteArray windowValue(const QString& name, const QString& key) const;
    void setWindowValue(const QString& name, const QString& key, const QByteArray& value);

    QString filePath;
    QJsonObject root;
};

} // namespace zl
