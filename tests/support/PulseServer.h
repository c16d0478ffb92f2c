#pragma once

#include <QProcess>
#include <QString>
#include <QTemporaryDir>

#include <memory>

class SpawnedProgram;

// A private PulseAudio server for tests: its own runtime folder and socket, two null sinks
// ("zl-speaker", the default, and "zl-second"), and a microphone: a third null sink, "zl-mic",
// into which a sine of kToneHz plays, with its monitor offered as the default source "zl-tone".
// (The server's own sine source posts its audio in two-second blocks; a monitor follows its
// readers' latency. Qt lists no monitors as inputs, hence the remapped source.) It runs in the foreground as a child of
// the test (also as root, where the server only warns) and is ended by its PID when the object goes. Construct it
// before anything touches Qt Multimedia: the constructor points PULSE_SERVER of this process at it. The server
// and pactl are started with posix_spawn (see SpawnedProgram), so the fixture may serve ThreadSanitizer suites.
class PulseServer {
public:
    static constexpr int kToneHz = 500;

    PulseServer();
    ~PulseServer();
    PulseServer(const PulseServer&) = delete;
    PulseServer& operator=(const PulseServer&) = delete;

    bool isRunning() const { return running; }
    // Why the server could not be started.
    QString failure() const { return reason; }
    QString serverAddress() const;

    // Runs pactl against this server; the standard output, or empty on failure.
    QByteArray pactl(const QStringList& args) const;
    // The sink index of a named sink, -1 if unknown.
    int sinkIndex(const QString& sinkName) const;
    // Sink indices of the streams playing now, except the tone for the microphone.
    QList<int> sinkInputSinks() const;

    // Starts parec on a sink's monitor: 48 kHz mono 16-bit on its standard output. (A QProcess: not for the
    // suites that run under ThreadSanitizer.)
    QProcess* record(const QString& sinkName, QObject* parent) const;

private:
    QTemporaryDir dir;
    std::unique_ptr<SpawnedProgram> server;
    bool running = false;
    QString reason;
    QByteArray savedServer;
};
