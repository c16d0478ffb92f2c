#include "PulseServer.h"

#include "SpawnedProgram.h"

#include <QDeadlineTimer>
#include <QFile>
#include <QStandardPaths>

PulseServer::PulseServer()
{
    savedServer = qgetenv("PULSE_SERVER");
    const QString binary = QStandardPaths::findExecutable(QStringLiteral("pulseaudio"));
    if (binary.isEmpty() || QStandardPaths::findExecutable(QStringLiteral("pactl")).isEmpty()) {
        reason = QStringLiteral("pulseaudio or pactl is not installed");
        return;
    }
    if (!dir.isValid()) {
        reason = QStringLiteral("no temporary folder");
        return;
    }
    QFile script(dir.filePath(QStringLiteral("server.pa")));
    if (!script.open(QIODevice::WriteOnly)) {
        reason = QStringLiteral("cannot write the server script");
        return;
    }
    script.write(QStringLiteral("load-module module-native-protocol-unix auth-anonymous=1 socket=%1\n"
                                "load-module module-null-sink sink_name=zl_null rate=48000 channels=2 "
                                "sink_properties=device.description=zl-speaker\n"
                                "load-module module-null-sink sink_name=zl_other rate=48000 channels=2 "
                                "sink_properties=device.description=zl-second\n"
                                "load-module module-null-sink sink_name=zl_mic rate=48000 channels=1 "
                                "sink_properties=device.description=zl-mic\n"
                                "load-module module-sine sink=zl_mic frequency=%2\n"
                                "set-default-sink zl_null\n"
                                "load-module module-remap-source master=zl_mic.monitor source_name=zl_tone "
                                "source_properties=device.description=zl-tone\n"
                                "set-default-source zl_tone\n")
                     .arg(dir.filePath(QStringLiteral("native")))
                     .arg(kToneHz)
                     .toUtf8());
    script.close();

    // Everything the server writes stays in the temporary folder, whoever runs the tests.
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    for (const char* name : {"HOME", "XDG_RUNTIME_DIR", "PULSE_RUNTIME_PATH", "PULSE_STATE_PATH", "XDG_CONFIG_HOME"})
        env.insert(QLatin1String(name), dir.path());
    env.remove(QStringLiteral("PULSE_SERVER"));
    env.remove(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"));
    server = std::make_unique<SpawnedProgram>(
        binary,
        QStringList{QStringLiteral("--daemonize=no"), QStringLiteral("--exit-idle-time=-1"),
                    QStringLiteral("--disallow-exit"), QStringLiteral("--log-target=stderr"), QStringLiteral("-n"),
                    QStringLiteral("-F"), script.fileName()},
        env, dir.filePath(QStringLiteral("server.log")));
    if (!server->isRunning()) {
        reason = QStringLiteral("pulseaudio did not start");
        return;
    }
    qputenv("PULSE_SERVER", serverAddress().toLocal8Bit());
    // The server is up once pactl gets an answer; it needs a moment to load its modules.
    const QDeadlineTimer deadline(15000);
    while (!deadline.hasExpired() && server->isRunning()) {
        if (pactl({QStringLiteral("info")}).contains("Server Name"))
            break;
        server->waitForFinished(100);
    }
    running = server->isRunning() && sinkIndex(QStringLiteral("zl_null")) >= 0;
    if (!running) {
        QFile log(dir.filePath(QStringLiteral("server.log")));
        log.open(QIODevice::ReadOnly);
        reason = QStringLiteral("pulseaudio did not come up: ") + QString::fromUtf8(log.readAll()).trimmed();
    }
}

PulseServer::~PulseServer()
{
    server.reset();
    if (savedServer.isNull())
        qunsetenv("PULSE_SERVER");
    else
        qputenv("PULSE_SERVER", savedServer);
}

QString PulseServer::serverAddress() const
{
    return QStringLiteral("unix:") + dir.filePath(QStringLiteral("native"));
}

QByteArray PulseServer::pactl(const QStringList& args) const
{
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("PULSE_SERVER"), serverAddress());
    return SpawnedProgram::run(QStringLiteral("pactl"), args, env, 5000);
}

int PulseServer::sinkIndex(const QString& sinkName) const
{
    const QList<QByteArray> lines =
        pactl({QStringLiteral("list"), QStringLiteral("short"), QStringLiteral("sinks")}).split('\n');
    for (const QByteArray& line : lines) {
        const QList<QByteArray> fields = line.split('\t');
        if (fields.size() > 1 && fields.at(1) == sinkName.toUtf8())
            return fields.at(0).toInt();
    }
    return -1;
}

QList<int> PulseServer::sinkInputSinks() const
{
    const int tone = sinkIndex(QStringLiteral("zl_mic"));
    QList<int> sinks;
    const QList<QByteArray> lines =
        pactl({QStringLiteral("list"), QStringLiteral("short"), QStringLiteral("sink-inputs")}).split('\n');
    for (const QByteArray& line : lines) {
        const QList<QByteArray> fields = line.split('\t');
        if (fields.size() > 1 && fields.at(1).toInt() != tone)
            sinks.append(fields.at(1).toInt());
    }
    return sinks;
}

QProcess* PulseServer::record(const QString& sinkName, QObject* parent) const
{
    auto* p = new QProcess(parent);
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("PULSE_SERVER"), serverAddress());
    p->setProcessEnvironment(env);
    p->start(QStringLiteral("parec"),
             {QStringLiteral("-d"), sinkName + QStringLiteral(".monitor"), QStringLiteral("--raw"),
              QStringLiteral("--format=s16le"), QStringLiteral("--rate=48000"), QStringLiteral("--channels=1"),
              QStringLiteral("--latency-msec=10")});
    return p;
}
