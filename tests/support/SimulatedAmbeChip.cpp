#include "SimulatedAmbeChip.h"

#include "app/ThreadHandOff.h"
#include "hw/AmbeFrame.h"

#include <QHostAddress>
#include <QNetworkDatagram>
#include <QSocketNotifier>
#include <QThread>
#include <QTimer>
#include <QUdpSocket>

#include <cerrno>
#include <cmath>
#include <fcntl.h>
#include <mutex>
#include <pty.h>
#include <termios.h>
#include <unistd.h>

namespace {

constexpr char startByte = 0x61;
// NUL-terminated identity texts.
const QByteArray productText("AMBE3000R", 10);
const QByteArray versionText("V120.E100.XXXX.C106.G514.R009.B0010411.C0020208", 48);

// The 25 unprotected bits of the simulator's frames carry this mark.
constexpr quint32 frameMark = 0x15A5A5A;

int lineBaud(speed_t speed)
{
    return speed == B115200 ? 115200 : speed == B230400 ? 230400 : speed == B460800 ? 460800 : int(speed);
}

QByteArray packet(quint8 type, const QByteArray& fields)
{
    QByteArray pkt;
    const int len = int(fields.size());
    pkt.append(startByte).append(char(len >> 8)).append(char(len & 0xFF)).append(char(type)).append(fields);
    return pkt;
}

} // namespace

class SimulatedAmbeChip::Engine {
public:
    enum Transport { Udp, Pty };

    QThread thread;
    QObject* home = nullptr; // lives on thread; parent of sockets and notifiers

    mutable std::mutex mutex;
    int delayMs = 0;
    IdentityReplies identity = IdentityReplies::Normal;
    int initStatus = 0;
    bool hold = false;
    int toDrop = 0;
    int received[3] = {0, 0, 0};
    int productIds = 0;
    int configures = 0;
    QByteArray rateWords;
    QList<int> bauds;

    // Touched on the chip's thread only.
    QUdpSocket* udp = nullptr;
    QHostAddress peerAddress;
    quint16 peerPort = 0;
    int masterFd = -1;
    int slaveFd = -1;
    QSocketNotifier* notifier = nullptr;
    QByteArray buffer[2];
    Transport lastTransport = Udp;
    QList<QPair<Transport, QByteArray>> held;
    double phase = 0;

    template <typename F>
    auto locked(F&& f) const
    {
        const std::lock_guard lock(mutex);
        return f();
    }

    template <typename F>
    void run(F&& f)
    {
        QObject* target = home; // read before the hand-over: f may clear it
        zl::handOff();
        QMetaObject::invokeMethod(
            target,
            [&f] {
                f();
                zl::handOff();
            },
            Qt::BlockingQueuedConnection);
        zl::takeOver();
    }

    void send(Transport transport, const QByteArray& bytes)
    {
        if (transport == Udp) {
            if (udp && peerPort)
                udp->writeDatagram(bytes, peerAddress, peerPort);
            return;
        }
        qsizetype done = 0;
        while (masterFd >= 0 && done < bytes.size()) {
            const ssize_t n = ::write(masterFd, bytes.constData() + done, size_t(bytes.size() - done));
            if (n <= 0)
                break;
            done += n;
        }
    }

    void reply(Transport transport, const QByteArray& bytes, bool holdable)
    {
        int delay;
        {
            const std::lock_guard lock(mutex);
            if (holdable && hold) {
                held.append({transport, bytes});
                return;
            }
            if (holdable && toDrop > 0) {
                --toDrop;
                return;
            }
            delay = delayMs;
        }
        if (delay <= 0)
            send(transport, bytes);
        else
            QTimer::singleShot(delay, home, [this, transport, bytes] { send(transport, bytes); });
    }

    void releaseHeld()
    {
        const auto pending = std::exchange(held, {});
        for (const auto& item : pending)
            reply(item.first, item.second, false);
    }

    void onBytes(Transport transport, const QByteArray& data)
    {
        lastTransport = transport;
        QByteArray& buf = buffer[transport];
        buf += data;
        while (buf.size() >= 4) {
            if (buf[0] != startByte) {
                buf.remove(0, 1);
                continue;
            }
            const int total = ((quint8(buf[1]) & 0x0F) << 8 | quint8(buf[2])) + 4;
            if (buf.size() < total)
                break;
            const QByteArray pkt = buf.left(total);
            buf.remove(0, total);
            handle(transport, pkt);
        }
    }

    void handle(Transport transport, const QByteArray& pkt)
    {
        const int type = quint8(pkt[3]);
        if (type <= 2) {
            const std::lock_guard lock(mutex);
            ++received[type];
        }
        if (type == 1 && pkt.size() >= 6 && pkt[4] == 0x01) {
            const QByteArray frame = pkt.mid(6, (quint8(pkt[5]) + 7) / 8);
            const QByteArray pcm = decodeFrame(frame, &phase);
            QByteArray fields = QByteArray::fromHex("00A0");
            const auto* s = reinterpret_cast<const qint16*>(pcm.constData());
            for (int i = 0; i < 160; ++i)
                fields.append(char(quint16(s[i]) >> 8)).append(char(quint16(s[i]) & 0xFF));
            reply(transport, packet(2, fields), true);
        } else if (type == 2 && pkt.size() >= 6 + 320 && pkt[4] == 0x00) {
            qint16 pcm[160];
            for (int i = 0; i < 160; ++i)
                pcm[i] = qint16(quint16(quint8(pkt[6 + 2 * i])) << 8 | quint8(pkt[7 + 2 * i]));
            reply(transport, packet(1, QByteArray::fromHex("0148") + encodeFrame(pcm)), true);
        } else if (type == 0) {
            handleControl(transport, pkt);
        }
    }

    void handleControl(Transport transport, const QByteArray& pkt)
    {
        QByteArray fields;
        bool answer = true;
        for (int i = 4; i < pkt.size();) {
            const quint8 code = quint8(pkt[i]);
            const std::lock_guard lock(mutex);
            switch (code) {
            case 0x33: // reset
                fields += QByteArray::fromHex("39");
                i += 1;
                break;
            case 0x30:
                ++productIds;
                if (masterFd >= 0 && transport == Pty) {
                    termios tio{};
                    if (tcgetattr(slaveFd, &tio) == 0)
                        bauds.append(lineBaud(cfgetispeed(&tio)));
                }
                if (identity == IdentityReplies::Normal)
                    fields += QByteArray::fromHex("30") + productText;
                else if (identity == IdentityReplies::VersionOnly)
                    fields += QByteArray::fromHex("31") + versionText;
                i += 1;
                break;
            case 0x31:
                if (identity != IdentityReplies::Silent)
                    fields += QByteArray::fromHex("31") + versionText;
                i += 1;
                break;
            case 0x0A: // rate by parameter words
                rateWords = pkt.mid(i + 1, 12);
                [[fallthrough]];
            case 0x40: // channel select
            case 0x32: // companding
            case 0x05:
            case 0x06:
            case 0x15:
            case 0x16:
            case 0x4B:
                // Each is answered with its code and status 0; the field lengths differ.
                fields.append(char(code)).append('\0');
                i += code == 0x0A ? 13 : code == 0x40 ? 1 : code == 0x32 ? 2 : 3;
                break;
            case 0x0B: // init
                ++configures;
                if (initStatus < 0)
                    answer = false;
                fields.append(char(0x0B)).append(char(initStatus));
                i += 2;
                break;
            default:
                i = int(pkt.size()); // unknown field: the rest cannot be walked
            }
        }
        if (answer && !fields.isEmpty())
            reply(transport, packet(0, fields), false);
    }
};

SimulatedAmbeChip::SimulatedAmbeChip() : engine(std::make_unique<Engine>())
{
    engine->home = new QObject;
    engine->home->moveToThread(&engine->thread);
    engine->thread.setObjectName(QStringLiteral("ambe-sim"));
    engine->thread.start();
}

SimulatedAmbeChip::~SimulatedAmbeChip()
{
    Engine* e = engine.get();
    e->run([e] {
        delete e->home; // sockets and notifiers go with it, on their own thread
        e->home = nullptr;
        if (e->masterFd >= 0)
            ::close(e->masterFd);
        if (e->slaveFd >= 0)
            ::close(e->slaveFd);
    });
    e->thread.quit();
    e->thread.wait();
}

quint16 SimulatedAmbeChip::listenUdp()
{
    Engine* e = engine.get();
    quint16 port = 0;
    e->run([e, &port] {
        if (!e->udp) {
            e->udp = new QUdpSocket(e->home);
            if (!e->udp->bind(QHostAddress::LocalHost, 0))
                return;
            QObject::connect(e->udp, &QUdpSocket::readyRead, e->home, [e] {
                while (e->udp->hasPendingDatagrams()) {
                    const QNetworkDatagram d = e->udp->receiveDatagram();
                    e->peerAddress = d.senderAddress();
                    e->peerPort = quint16(d.senderPort());
                    e->onBytes(Engine::Udp, d.data());
                }
            });
        }
        port = e->udp->localPort();
    });
    return port;
}

QString SimulatedAmbeChip::openPty()
{
    Engine* e = engine.get();
    QString path;
    e->run([e, &path] {
        char name[128] = {};
        if (e->masterFd < 0) {
            termios raw{};
            cfmakeraw(&raw);
            if (openpty(&e->masterFd, &e->slaveFd, name, &raw, nullptr) != 0)
                return;
            // The chip keeps the slave open too, so that the master never sees a hang-up
            // while the code under test closes and reopens the port.
            fcntl(e->masterFd, F_SETFL, fcntl(e->masterFd, F_GETFL) | O_NONBLOCK);
            e->notifier = new QSocketNotifier(e->masterFd, QSocketNotifier::Read, e->home);
            QObject::connect(e->notifier, &QSocketNotifier::activated, e->home, [e] {
                char buf[4096];
                QByteArray data;
                ssize_t n;
                while ((n = ::read(e->masterFd, buf, sizeof buf)) > 0)
                    data.append(buf, n);
                if (!data.isEmpty())
                    e->onBytes(Engine::Pty, data);
            });
        }
        path = QString::fromLocal8Bit(ptsname(e->masterFd));
    });
    return path;
}

void SimulatedAmbeChip::setDelay(int ms)
{
    engine->locked([&] { engine->delayMs = ms; });
}

void SimulatedAmbeChip::setIdentityReplies(IdentityReplies replies)
{
    engine->locked([&] { engine->identity = replies; });
}

void SimulatedAmbeChip::setInitStatus(int status)
{
    engine->locked([&] { engine->initStatus = status; });
}

void SimulatedAmbeChip::dropReplies(int n)
{
    engine->locked([&] { engine->toDrop = n; });
}

void SimulatedAmbeChip::setHoldReplies(bool hold)
{
    Engine* e = engine.get();
    e->run([e, hold] {
        {
            const std::lock_guard lock(e->mutex);
            e->hold = hold;
        }
        if (!hold)
            e->releaseHeld();
    });
}

void SimulatedAmbeChip::sendRaw(const QByteArray& bytes)
{
    Engine* e = engine.get();
    e->run([e, bytes] { e->send(e->lastTransport, bytes); });
}

int SimulatedAmbeChip::packetsReceived(int type) const
{
    return engine->locked([&] { return type >= 0 && type <= 2 ? engine->received[type] : 0; });
}

int SimulatedAmbeChip::productIdRequests() const
{
    return engine->locked([&] { return engine->productIds; });
}

int SimulatedAmbeChip::configureRequests() const
{
    return engine->locked([&] { return engine->configures; });
}

QByteArray SimulatedAmbeChip::lastRateWords() const
{
    return engine->locked([&] { return engine->rateWords; });
}

QList<int> SimulatedAmbeChip::probeBauds() const
{
    return engine->locked([&] { return engine->bauds; });
}

SimulatedAmbeChip::Tone SimulatedAmbeChip::analyse(const QByteArray& pcm)
{
    const auto* s = reinterpret_cast<const qint16*>(pcm.constData());
    const int n = int(pcm.size() / 2);
    Tone tone;
    double first = -1;
    double last = -1;
    int crossings = 0;
    for (int i = 0; i < n; ++i) {
        tone.level = std::max(tone.level, std::abs(int(s[i])));
        // Upward zero crossings, interpolated between samples.
        if (i > 0 && s[i - 1] < 0 && s[i] >= 0) {
            const double t = (i - 1) + double(s[i - 1]) / (double(s[i - 1]) - double(s[i]));
            if (first < 0)
                first = t;
            last = t;
            ++crossings;
        }
    }
    if (crossings >= 2)
        tone.frequency = int(std::lround((crossings - 1) * 8000.0 / (last - first)));
    return tone;
}

QByteArray SimulatedAmbeChip::encodeFrame(const qint16* pcm)
{
    const Tone tone = analyse(QByteArray::fromRawData(reinterpret_cast<const char*>(pcm), 320));
    // 49 bits: level / 8 (12 bits), frequency / 2 (12 bits), the mark (25 bits).
    const quint64 bits = (quint64(std::min(tone.level >> 3, 0xFFF)) << 37) |
                         (quint64(std::min(tone.frequency >> 1, 0xFFF)) << 25) | frameMark;
    uint8_t params[7];
    for (int i = 0; i < 7; ++i)
        params[i] = uint8_t((bits << 7) >> (48 - 8 * i));
    QByteArray frame(9, Qt::Uninitialized);
    zl::hw::ambe49To72(params, reinterpret_cast<uint8_t*>(frame.data()));
    return frame;
}

QByteArray SimulatedAmbeChip::decodeFrame(const QByteArray& frame, double* phase)
{
    QByteArray pcm(320, '\0');
    if (frame.size() < 9)
        return pcm;
    uint8_t params[7];
    zl::hw::ambe72To49(reinterpret_cast<const uint8_t*>(frame.constData()), params);
    quint64 bits = 0;
    for (int i = 0; i < 7; ++i)
        bits = (bits << 8) | params[i];
    bits >>= 7;
    if ((bits & 0x1FFFFFF) != frameMark)
        return pcm;
    const int level = int((bits >> 37) & 0xFFF) << 3;
    const int frequency = int((bits >> 25) & 0xFFF) << 1;
    double local = 0;
    double& ph = phase ? *phase : local;
    auto* out = reinterpret_cast<qint16*>(pcm.data());
    for (int i = 0; i < 160; ++i) {
        out[i] = qint16(std::lround(level * std::sin(ph)));
        ph = std::fmod(ph + 2 * M_PI * frequency / 8000.0, 2 * M_PI);
    }
    return pcm;
}

QByteArray SimulatedAmbeChip::sine(int level, int frequency, int samples)
{
    QByteArray pcm(samples * 2, Qt::Uninitialized);
    auto* out = reinterpret_cast<qint16*>(pcm.data());
    for (int i = 0; i < samples; ++i)
        out[i] = qint16(std::lround(level * std::sin(2 * M_PI * frequency * i / 8000.0)));
    return pcm;
}
