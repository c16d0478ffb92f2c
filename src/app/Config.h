#pragma once

#include <QByteArray>
#include <QJsonArray>
#include <QJsonObject>
#include <QList>
#include <QObject>
#include <QString>

namespace zl {

// All persistent settings: one JSON object in memory, written whole to config.json.
// Reads never fail, writes never report, and every change is announced by configChanged().
// A damaged file is kept aside before anything is written over it, and an unreadable one is
// never written at all; loadProblem() tells the user which of the two happened.
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

    // Empty after a normal start; otherwise one sentence for the user about what load() found.
    // It is told by the window (and its log line), since the log is not open yet at load time.
    QString loadProblem() const { return problem; }
    // False when the file could not be read: saving then would destroy what the user has.
    bool canSave() const { return saveAllowed; }

signals:
    void configChanged();

private:
    void load();
    void setGeneralString(const QString& key, const QString& value);
    QByteArray windowValue(const QString& name, const QString& key) const;
    void setWindowValue(const QString& name, const QString& key, const QByteArray& value);

    void keepDamagedFile(const QString& path, const QByteArray& bytes);

    QString filePath;
    QJsonObject root;
    QString problem;
    bool saveAllowed = true;
};

// The objects of a list read from the configuration. Anything else in it (a hand edit gone
// wrong) is skipped with one log line naming the list, instead of becoming a blank entry.
QList<QJsonObject> configObjects(const QJsonArray& list, const QString& where);

} // namespace zl
