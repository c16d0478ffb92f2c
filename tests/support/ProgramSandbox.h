#pragma once

#include <QJsonObject>
#include <QProcess>
#include <QStringList>
#include <QTemporaryDir>

#include <memory>

// Runs a copy of the real zephyrlake binary in a private temporary tree with its own HOME and XDG
// folders, offscreen. As root the program runs as nobody (it refuses root), who owns the tree.
class ProgramSandbox {
public:
    // binDir: the folder, below the sandbox, the binary is copied into ("build", "bin").
    explicit ProgramSandbox(const QString& binDir = QStringLiteral("bin"));
    // The program as `cmake --install` lays it out, with the sandbox as the prefix.
    static std::unique_ptr<ProgramSandbox> installed();
    ~ProgramSandbox();

    bool isValid() const { return valid; }
    QString root() const { return dir.path(); }
    QString binaryDir() const;
    QString configFile() const;

    void writeConfig(const QJsonObject& config);
    void writeConfigBytes(const QByteArray& bytes);

    // Starts the program; asRoot keeps the suite's own user (only meaningful as root).
    QProcess* start(const QStringList& args = {}, bool asRoot = false);

    // The log files in a folder, by name.
    static QStringList logFiles(const QString& folder);
    // Files below the sandbox, relative, except the binary.
    QStringList filesCreated() const;

private:
    void kill();
    void prepare();
    void handOver(const QString& path) const;

    QTemporaryDir dir;
    QString bin;
    bool valid = false;
    std::unique_ptr<QProcess> proc;
};
