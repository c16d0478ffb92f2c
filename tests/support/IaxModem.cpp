#include "IaxModem.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QFile>
#include <QFileInfo>
#include <QSocketNotifier>
#include <QStandardPaths>
#include <QThread>

#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

IaxModem::IaxModem(QObject* parent) : QObject(parent), dir(QDir::tempPath() + "/zl-iaxmodem-XXXXXX")
{
    process.setProcessChannelMode(QProcess::MergedChannels);
}

IaxModem::~IaxModem()
{
    delete notifier;
    if (pty >= 0)
        ::close(pty);
    if (process.state() != QProcess::NotRunning) {
        process.kill();
        process.waitForFinished(3000);
    }
    if (!logDir.isEmpty())
        QDir(logDir).removeRecursively();
    if (!recordingBase.isEmpty())
        for (const char* suffix : {"-iax.raw.recording", "-iax.raw", "-dsp.raw.recording", "-dsp.raw"})
            QFile::remove(recordingBase + suffix);
}

QString IaxModem::unavailableReason()
{
    if (QStandardPaths::findExecutable("iaxmodem").isEmpty())
        return QStringLiteral("iaxmodem is not installed");
    if (!QFileInfo(QStringLiteral("/tmp")).isDir() || QDir::tempPath() != QStringLiteral("/tmp"))
        return QStringLiteral("iaxmodem's paths need the temporary folder at /tmp");
    return {};
}

bool IaxModem::start(quint16 port)
{
    if (!dir.isValid())
        return false;
    const QString folder = QFileInfo(dir.path()).fileName();
    // /etc/iaxmodem/../../tmp/<folder>/modem is the configuration, /var/log/iaxmodem/../../tmp/...
    // (that is /var/tmp/<folder>/modem) the log.
    name = QStringLiteral("../../tmp/%1/modem").arg(folder);
    logDir = QStringLiteral("/var/tmp/%1").arg(folder);
    if (!QDir().mkpath(logDir))
        return false;
    QFile config(dir.filePath("modem"));
    if (!config.open(QIODevice::WriteOnly))
        return false;
    // The recordings are named after the peer: /tmp/<folder>-iax.raw and -dsp.raw.
    config.write(QStringLiteral("device %1/tty\nowner root:root\nmode 660\nport %2\nrefresh 0\nserver 127.0.0.1\n"
                                "peername %3\nsecret zl\ncodec ulaw\nrecord\n")
                     .arg(dir.path())
                     .arg(port)
                     .arg(folder)
                     .toUtf8());
    recordingBase = QStringLiteral("/tmp/%1").arg(folder);
    config.close();
    process.start(QStandardPaths::findExecutable("iaxmodem"), {name});
    if (!process.waitForStarted(5000))
        return false;
    // The pseudo-terminal's link appears once the modem is up.
    const QString link = dir.filePath("tty");
    QDeadlineTimer deadline(5000);
    while (!QFileInfo::exists(link) && !deadline.hasExpired())
        QThread::msleep(20);
    pty = ::open(QFile::encodeName(link).constData(), O_RDWR | O_NOCTTY | O_NONBLOCK);
    if (pty < 0)
        return false;
    termios tio{};
    tcgetattr(pty, &tio);
    cfmakeraw(&tio);
    tcsetattr(pty, TCSANOW, &tio);
    notifier = new QSocketNotifier(pty, QSocketNotifier::Read);
    connect(notifier, &QSocketNotifier::activated, this, [this] {
        char buffer[512];
        ssize_t n;
        while ((n = ::read(pty, buffer, sizeof buffer)) > 0)
            output.append(buffer, qsizetype(n));
    });
    return true;
}

void IaxModem::terminate()
{
    process.terminate();
}

void IaxModem::sendAt(const QByteArray& command)
{
    const QByteArray line = command + "\r";
    if (pty >= 0 && ::write(pty, line.constData(), size_t(line.size())) < 0)
        qWarning() << "IaxModem: write to the modem failed";
}

QByteArray IaxModem::receivedAudio() const
{
    // The recording of a running call carries a suffix that goes when the call ends.
    for (const char* suffix : {"-iax.raw.recording", "-iax.raw"}) {
        QFile recording(recordingBase + suffix);
        if (recording.open(QIODevice::ReadOnly))
            return recording.readAll();
    }
    return {};
}
