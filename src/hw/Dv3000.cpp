#include "hw/Dv3000.h"

#include "hw/AmbeFrame.h"
#include "hw/AmbePacket.h"
#include "hw/Md380Firmware.h"
#include "hw/Md380Vocoder.h"

#include <QDebug>
#include <QElapsedTimer>
#include <QFile>
#include <QNetworkDatagram>
#include <QSerialPort>
#include <QSerialPortInfo>
#include <QSignalBlocker>
#include <QThread>
#include <QTimer>
#include <QUdpSocket>

#include <algorithm>
#include <iterator>

namespace zl::hw {

namespace {

constexpr char startByte = 0x61;
constexpr quint8 pktControl = 0x00;
constexpr quint8 pktChannel = 0x01;
constexpr quint8 pktSpeech = 0x02;
constexpr quint16 ftdiVendorId = 0x0403;
constexpr int maxInFlight = 3;
// So many lost answers in a row and the chip is given up.
constexpr int kLostRepliesToFail = 10;
// The longest packet takes under 30 ms at the slowest baud rate.
constexpr int kStalePieceMs = 60;
constexpr int samplesPerFrame = 160;

const QByteArray resetPacket = QByteArray::fromHex("6100010033");
const QByteArray productIdRequest = QByteArray::fromHex("6100010030");
const QByteArray versionRequest = QByteArray::fromHex("6100010031");

const QString inprocLocation = QStringLiteral("sw://md380");
const QString firmwareMissing =
    QStringLiteral("MD380 firmware not found — put md380fw.img and md380ram.img in share/zephyrlake/vocoder_fw, or "
                   "set hardware.md380_fw_dir in the config (extract them from your own radio's firmware; they are "
                   "not shipped)");

// LEN is read as 12 bits: the low nibble of byte 1 and all of byte 2.
int packetLength(const QByteArray& buf, int start)
{
    return ((quint8(buf[start + 1]) & 0x0F) << 8 | quint8(buf[start + 2])) + 4;
}

QByteArray rateWords(int rate)
{
    switch (rate) {
    case 33:
    case 35:
    case 59:
        return QByteArray::fromHex("0431075424000000 00006F48");
    case 34:
        return QByteArray::fromHex("0431075400000000 00007031");
    case 49:
    case 63:
        return QByteArray::fromHex("0130076340000000 00000048");
    default:
        return {};
    }
}

QByteArray configurePacket(const QByteArray& words)
{
    return QByteArray::fromHex("61002100 40 050000 060000 3200 0A") + words +
           QByteArray::fromHex("150000 160000 4B0000 0B03");
}

QByteArray channelPacket(const QByteArray& frame, int bitCount)
{
    const int len = int(frame.size()) + 2;
    QByteArray pkt;
    pkt.reserve(len + 4);
    pkt.append(startByte).append(char(len >> 8)).append(char(len & 0xFF)).append(char(pktChannel));
    pkt.append(char(0x01)).append(char(bitCount)).append(frame);
    return pkt;
}

QByteArray speechPacket(const qint16* pcm)
{
    QByteArray pkt = QByteArray::fromHex("61014202 00A0");
    pkt.resize(6 + 2 * samplesPerFrame);
    for (int i = 0; i < samplesPerFrame; ++i) {
        const quint16 s = quint16(pcm[i]);
        pkt[6 + 2 * i] = char(s >> 8);
        pkt[7 + 2 * i] = char(s & 0xFF);
    }
    return pkt;
}

// count samples from offset 6 of a speech packet, big endian, to host order. The blocking
// paths may hand a packet one byte short; what is missing reads as zero.
QByteArray speechSamples(const QByteArray& pkt, int count)
{
    QByteArray pcm(count * 2, Qt::Uninitialized);
    auto* out = reinterpret_cast<qint16*>(pcm.data());
    const auto byteAt = [&pkt](int i) { return i < pkt.size() ? quint8(pkt[i]) : quint8(0); };
    for (int i = 0; i < count; ++i)
        out[i] = qint16(quint16(byteAt(6 + 2 * i)) << 8 | byteAt(7 + 2 * i));
    return pcm;
}

// Status byte of the init field (0x0B) in the first complete control packet, or -1.
int findInitStatus(const QByteArray& rx)
{
    for (int i = 0; i + 4 <= rx.size(); ++i) {
        if (rx[i] != startByte)
            continue;
        const int total = packetLength(rx, i);
        if (i + total > rx.size() || quint8(rx[i + 3]) != pktControl)
            continue;
        for (int j = i + 4; j + 1 < i + total; ++j) {
            if (quint8(rx[j]) == 0x0B)
                return quint8(rx[j + 1]);
        }
    }
    return -1;
}

} // namespace

Dv3000::Dv3000(QObject* parent)
    : QObject(parent), serial(new QSerialPort(this)), probeTimer(new QTimer(this)), replyTimer(new QTimer(this))
{
    probeTimer->setSingleShot(true);
    replyTimer->setSingleShot(true);
    connect(replyTimer, &QTimer::timeout, this, &Dv3000::onReplyTimeout);
    replyClock.start();
    connect(serial, &QSerialPort::readyRead, this, &Dv3000::onSerialReadyRead);
    connect(probeTimer, &QTimer::timeout, this, &Dv3000::onProbeTimeout);
}

Dv3000::~Dv3000()
{
    close();
    delete vocoder;
}

QIODevice* Dv3000::device() const
{
    if (udpMode)
        return udp;
    return serial;
}

bool Dv3000::isOpen() const
{
    if (inproc)
        return vocoder && vocoder->isOpen();
    if (udpMode)
        return udp && udp->state() == QAbstractSocket::ConnectedState;
    return serial->isOpen();
}

QByteArray Dv3000::readAvailable()
{
    if (!udpMode)
        return serial->readAll();
    QByteArray data;
    if (!udp)
        return data;
    while (udp->hasPendingDatagrams())
        data += udp->receiveDatagram().data();
    data += udp->readAll();
    return data;
}

bool Dv3000::waitForInput(int ms)
{
    QIODevice* dev = device();
    return dev && dev->waitForReadyRead(ms);
}

qint64 Dv3000::writePacket(const QByteArray& packet)
{
    QIODevice* dev = device();
    if (!dev || !isOpen())
        return -1;
    return dev->write(packet);
}

bool Dv3000::openPort(const QString& port)
{
    close();
    udpMode = false;
    inproc = false;
    target = port;
    serial->setPortName(port);

    QString text;
    const QString shortName = QString(port).remove(QStringLiteral("/dev/"));
    for (const QSerialPortInfo& info : QSerialPortInfo::availablePorts()) {
        if (info.systemLocation() == port || info.portName() == shortName) {
            text = info.description() + QLatin1Char(' ') + info.manufacturer();
            break;
        }
    }
    static constexpr qint32 dv3kOrder[] = {230400, 460800, 115200};
    static constexpr qint32 otherOrder[] = {460800, 230400, 115200};
    const bool dv3k = text.contains(QLatin1String("DV3K"), Qt::CaseInsensitive) ||
                      text.contains(QLatin1String("Internet Labs"), Qt::CaseInsensitive);
    if (baudIndex > 2)
        baudIndex = 0;
    serial->setBaudRate(dv3k ? dv3kOrder[baudIndex] : otherOrder[baudIndex]);
    serial->setDataBits(QSerialPort::Data8);
    serial->setParity(QSerialPort::NoParity);
    serial->setStopBits(QSerialPort::OneStop);
    serial->setFlowControl(QSerialPort::NoFlowControl);
    if (!serial->open(QIODevice::ReadWrite)) {
        lastError = serial->errorString();
        emit failed(QStringLiteral("open ") + port + QStringLiteral(": ") + lastError);
        return false;
    }
    lastError.clear();
    portName = port;
    currentRate = -1;

    {
        // The chip's start-up chatter and the reply to the reset are thrown away unparsed.
        const QSignalBlocker blocker(serial);
        serial->setDataTerminalReady(false);
        serial->setRequestToSend(false);
        serial->clearError();
        QThread::msleep(50);
        serial->clear();
        if (serial->waitForReadyRead(50))
            serial->readAll();
        serial->write(resetPacket);
        serial->flush();
        serial->waitForBytesWritten(50);
        if (serial->waitForReadyRead(150))
            serial->readAll();
    }
    requestProductId();
    return true;
}

bool Dv3000::openUdp(const QString& host, quint16 port)
{
    close();
    udpMode = true;
    target = QStringLiteral("udp://%1:%2").arg(host).arg(port);
    if (!udp) {
        udp = new QUdpSocket(this);
        connect(udp, &QUdpSocket::readyRead, this, &Dv3000::onSerialReadyRead);
    }
    udp->connectToHost(host, port, QIODevice::ReadWrite);
    if (!udp->waitForConnected(1000)) {
        lastError = udp->errorString();
        udp->abort();
        emit failed(QStringLiteral("open ") + target + QStringLiteral(": ") + lastError);
        return false;
    }
    lastError.clear();
    portName = target;
    currentRate = -1;
    {
        const QSignalBlocker blocker(udp);
        readAvailable();
        udp->write(resetPacket);
        if (udp->waitForReadyRead(150))
            readAvailable();
    }
    requestProductId();
    return true;
}

bool Dv3000::loadMd380Firmware()
{
    for (const QString& folder : md380FirmwareFolders()) {
        QFile fw(folder + QStringLiteral("/md380fw.img"));
        QFile ram(folder + QStringLiteral("/md380ram.img"));
        if (!fw.open(QIODevice::ReadOnly) || !ram.open(QIODevice::ReadOnly))
            continue;
        md380Firmware = fw.readAll();
        md380Ram = ram.readAll();
        if (!md380Firmware.isEmpty() && !md380Ram.isEmpty()) {
            qInfo().noquote() << "Md380Vocoder firmware from" << folder;
            return true;
        }
        md380Firmware.clear();
        md380Ram.clear();
    }
    lastError = firmwareMissing;
    emit failed(QStringLiteral("md380 software vocoder: ") + lastError);
    return false;
}

bool Dv3000::openInproc()
{
    close();
    inproc = true;
    target = inprocLocation;
    if ((md380Firmware.isEmpty() || md380Ram.isEmpty()) && !loadMd380Firmware())
        return false;
    if (!vocoder)
        vocoder = new Md380Vocoder;
    if (!vocoder->init(reinterpret_cast<const uint8_t*>(md380Firmware.constData()), md380Firmware.size(),
                       reinterpret_cast<const uint8_t*>(md380Ram.constData()), md380Ram.size())) {
        lastError = QStringLiteral("unicorn init failed");
        emit failed(QStringLiteral("md380 software vocoder: ") + lastError);
        return false;
    }
    lastError.clear();
    portName = target;
    currentRate = -1;
    prodId = QStringLiteral("MD380 software vocoder");
    version = QStringLiteral("d02.032 / unicorn");
    // Warm up the emulator's translation cache, then start from clean codec history.
    vocoder->reset();
    uint8_t zeroFrame[7] = {};
    uint8_t pcm[2 * samplesPerFrame] = {};
    vocoder->decode(zeroFrame, pcm);
    std::fill(std::begin(pcm), std::end(pcm), uint8_t(0));
    vocoder->encode(pcm, zeroFrame);
    vocoder->reset();
    qInfo().noquote() << "Dv3000 inproc ready:" << prodId;
    emit detected(prodId, version);
    return true;
}

QString Dv3000::autoOpen()
{
    QStringList ports;
    for (const QSerialPortInfo& info : QSerialPortInfo::availablePorts()) {
        if (info.hasVendorIdentifier() && info.vendorIdentifier() == ftdiVendorId)
            ports << info.systemLocation();
    }
    if (ports.isEmpty()) {
        qInfo() << "Dv3000 autoOpen: no FTDI VID 0x0403 ports available";
        emit failed(QStringLiteral("no FTDI USB-serial device found (VID 0x0403)"));
        return {};
    }
    candidates = ports.mid(1);
    qInfo().noquote() << "Dv3000 autoOpen sweep over" << ports.join(QLatin1Char(' '));
    return openPort(ports.first()) ? ports.first() : QString();
}

void Dv3000::tryNextCandidate()
{
    if (candidates.isEmpty()) {
        emit failed(QStringLiteral("no responding DV3000 on any FTDI port"));
        return;
    }
    const QString port = candidates.takeFirst();
    baudIndex = 0;
    qInfo().noquote() << "Dv3000 retry on" << port;
    openPort(port);
}

void Dv3000::close()
{
    if (serial->isOpen())
        serial->close();
    if (udp)
        udp->abort();
    rxBuffer.clear();
    forgetAwaited();
    portName.clear();
    prodId.clear();
    version.clear();
    if (vocoder)
        vocoder->close();
    inproc = false;
}

void Dv3000::requestProductId()
{
    if (!isOpen())
        return;
    rxBuffer.clear();
    probing = true;
    probeRetries = 0;
    probeTimer->start(probeIntervalMs);
    writePacket(productIdRequest);
}

void Dv3000::onProbeTimeout()
{
    if (!probing)
        return;
    ++probeRetries;
    if (probeRetries <= 9) {
        // Ten requests per baud in all.
        rxBuffer.clear();
        probeTimer->start(probeIntervalMs);
        if (isOpen())
            writePacket(productIdRequest);
        return;
    }
    probing = false;
    probeRetries = 0;
    const QString label = portName.isEmpty() ? target : portName;
    if (!udpMode && !inproc && baudIndex < 2) {
        ++baudIndex;
        qInfo().noquote() << "Dv3000 probe timeout on" << label << "— retrying at next baud (idx" << baudIndex << ")";
        const QString port = target;
        close();
        openPort(port);
        return;
    }
    baudIndex = 0;
    qInfo().noquote() << "Dv3000 probe timeout on" << label << "(" << 10 << "retries, all bauds)";
    if (!candidates.isEmpty()) {
        close();
        tryNextCandidate();
        return;
    }
    lastError = QStringLiteral("No version response (chip not responding)");
    emit failed(QStringLiteral("no version response on ") + label);
}

void Dv3000::onSerialReadyRead()
{
    // Datagrams are packets of their own: a bad one is dropped whole and takes nothing with it.
    while (udpMode && udp && udp->hasPendingDatagrams()) {
        const QByteArray datagram = udp->receiveDatagram().data();
        if (isWholeAmbePacket(datagram)) {
            parsePacket(datagram);
        } else {
            qWarning().noquote() << "Dv3000: dropped a malformed datagram from" << target << "(" << datagram.size()
                                 << "bytes:" << datagram.left(8).toHex(' ') << ")";
        }
    }
    if (udpMode)
        return;
    const QByteArray data = readAvailable();
    // A packet cut off by a glitch on the line would swallow the start of the next one: a
    // piece left waiting longer than any packet takes to arrive is dropped.
    if (!rxBuffer.isEmpty() && replyClock.elapsed() - lastRxMs > kStalePieceMs) {
        qWarning().noquote() << "Dv3000: dropped" << rxBuffer.size() << "bytes of a cut-off packet on" << portName;
        rxBuffer.clear();
    }
    lastRxMs = replyClock.elapsed();
    if (probing)
        qInfo().noquote() << "Dv3000 probe rx on" << portName << ":" << data.toHex(' ');
    rxBuffer += data;
    for (const QByteArray& packet : takeAmbePackets(rxBuffer))
        parsePacket(packet);
}

void Dv3000::parsePacket(const QByteArray& packet)
{
    const quint8 type = quint8(packet[3]);
    if (type == pktChannel) {
        if (packet.size() < 7)
            return;
        answered(awaitedAmbe);
        emit ambeFrameReady(packet.mid(6));
        return;
    }
    if (type == pktSpeech) {
        if (packet.size() < 7)
            return;
        if (answered(awaitedPcm) && inFlight > 0)
            --inFlight;
        emit pcmFrameReady(speechSamples(packet, qMin(int(quint8(packet[5])), int(packet.size() - 6) / 2)));
        pumpChannels();
        return;
    }
    if (type != pktControl)
        return;
    readAmbeIdentity(packet, prodId, version);
    if (!probing || (prodId.isEmpty() && version.isEmpty()))
        return;
    probing = false;
    probeTimer->stop();
    if (!prodId.isEmpty() && version.isEmpty()) {
        writePacket(versionRequest);
    } else if (!version.isEmpty() && prodId.isEmpty()) {
        prodId = QStringLiteral("AMBE3000");
        writePacket(productIdRequest);
    }
    qInfo().noquote() << "Dv3000 detected on" << portName << "→ prodid=" << prodId << "version=" << version;
    emit detected(prodId, version);
}

void Dv3000::postChannel(const QByteArray& frame, int bitCount)
{
    if (!isOpen() || frame.isEmpty())
        return;
    if (bitCount < 1)
        bitCount = int(frame.size()) * 8;
    if (inproc) {
        const QByteArray pcm = inprocDecode(frame);
        if (!pcm.isEmpty())
            emit pcmFrameReady(pcm);
        return;
    }
    pendingChannels.append({frame, bitCount});
    pumpChannels();
}

void Dv3000::pumpChannels()
{
    if (pendingChannels.isEmpty() || inFlight >= maxInFlight)
        return;
    const PendingChannel next = pendingChannels.takeFirst();
    const QByteArray pkt = channelPacket(next.frame, next.bitCount);
    const qint64 written = writePacket(pkt);
    if (written == pkt.size()) {
        ++inFlight;
        await(awaitedPcm);
    }
    qDebug().noquote() << "Dv3000 postChannel write=" << written << "B (pkt=" << pkt.size()
                       << "B, bitCount=" << next.bitCount << ", in-flight=" << inFlight
                       << ", queued=" << pendingChannels.size();
}

void Dv3000::postSpeech(const qint16* pcm)
{
    if (!isOpen() || !pcm)
        return;
    if (inproc) {
        const QByteArray ambe = inprocEncode(pcm);
        if (!ambe.isEmpty())
            emit ambeFrameReady(ambe);
        return;
    }
    const QByteArray pkt = speechPacket(pcm);
    const qint64 written = writePacket(pkt);
    if (written == pkt.size())
        await(awaitedAmbe);
    qDebug().noquote() << "Dv3000 postSpeech write=" << written << "B (pkt=" << pkt.size() << "B)";
}

void Dv3000::postSpeech(const QByteArray& pcm)
{
    if (pcm.size() >= 2 * samplesPerFrame)
        postSpeech(reinterpret_cast<const qint16*>(pcm.constData()));
}

QByteArray Dv3000::inprocDecode(const QByteArray& frame)
{
    if (frame.size() < 9 || !vocoder)
        return {};
    uint8_t params[7];
    ambe72To49(reinterpret_cast<const uint8_t*>(frame.constData()), params);
    QByteArray pcm(2 * samplesPerFrame, Qt::Uninitialized);
    if (!vocoder->decode(params, reinterpret_cast<uint8_t*>(pcm.data())))
        return {};
    return pcm;
}

QByteArray Dv3000::inprocEncode(const qint16* pcm)
{
    if (!vocoder)
        return {};
    uint8_t params[7];
    if (!vocoder->encode(reinterpret_cast<const uint8_t*>(pcm), params))
        return {};
    QByteArray ambe(9, Qt::Uninitialized);
    ambe49To72(params, reinterpret_cast<uint8_t*>(ambe.data()));
    return ambe;
}

bool Dv3000::setRate(int rate)
{
    if (!isOpen())
        return false;
    if (inproc) {
        if (rate != 33 && rate != 34)
            return false;
        vocoder->reset();
        currentRate = rate;
        return true;
    }
    if (rate == currentRate) {
        qDebug() << "Dv3000 setRate: rate" << rate << "already active, skipping";
        return true;
    }
    const QByteArray words = rate > 63 ? QByteArray() : rateWords(rate);
    if (words.isEmpty())
        return false;
    const QByteArray pkt = configurePacket(words);
    QIODevice* dev = device();
    const QSignalBlocker blocker(dev);
    rxBuffer.clear();
    for (int attempt = 1; attempt <= 2; ++attempt) {
        QByteArray stale;
        while (waitForInput(150))
            stale += readAvailable();
        if (!stale.isEmpty())
            qDebug().noquote() << "Dv3000 setRate attempt" << attempt << "pre-drain skipping" << stale.size()
                               << "B:" << stale.toHex(' ');
        qDebug().noquote() << "Dv3000 setRate TX attempt" << attempt << "(" << pkt.size() << "B):" << pkt.toHex(' ');
        dev->write(pkt);
        if (!udpMode && !serial->waitForBytesWritten(200))
            continue;
        QByteArray rx;
        int status = -1;
        QElapsedTimer clock;
        clock.start();
        while (clock.elapsed() < 500) {
            if (waitForInput(50))
                rx += readAvailable();
            status = findInitStatus(rx);
            if (status >= 0)
                break;
        }
        if (status < 0) {
            qWarning().noquote() << "Dv3000 setRate attempt" << attempt << "timeout, no INIT ack (rx=" << rx.toHex(' ')
                                 << ")";
            continue;
        }
        qInfo().noquote() << "Dv3000 setRate attempt" << attempt << "INIT ack found, status=0x"
                          << QString::number(status, 16);
        if (status != 0) {
            qWarning().noquote() << "Dv3000 setRate: chip REJECTED ConfigureChannel"
                                 << "with status=0x" << QString::number(status, 16);
            return false;
        }
        currentRate = rate;
        return true;
    }
    qWarning() << "Dv3000 setRate: both attempts timed out — chip init failed";
    return false;
}

QByteArray Dv3000::blockingRequest(const QByteArray& packet, quint8 replyType, const char* what)
{
    QIODevice* dev = device();
    const QSignalBlocker blocker(dev);
    dev->write(packet);
    if (!udpMode)
        serial->waitForBytesWritten(50);
    QByteArray rx;
    QElapsedTimer clock;
    clock.start();
    while (clock.elapsed() < 60) {
        if (waitForInput(15))
            rx += readAvailable();
        for (int i = 0; i + 4 <= rx.size(); ++i) {
            if (rx[i] != startByte || quint8(rx[i + 3]) != replyType)
                continue;
            // Complete once start + 3 + LEN bytes are in, one short of the real end.
            if (rx.size() >= i + packetLength(rx, i) - 1)
                return rx.mid(i);
        }
    }
    qInfo().noquote() << what << rx.toHex(' ');
    return {};
}

QByteArray Dv3000::encodeSpeech(const qint16* pcm)
{
    if (!isOpen() || !pcm)
        return {};
    if (inproc)
        return inprocEncode(pcm);
    const QByteArray reply = blockingRequest(speechPacket(pcm), pktChannel, "Dv3000 encode: no PKT_CHANNEL reply, rx=");
    if (reply.isEmpty())
        return {};
    const int bits = quint8(reply[5]);
    return reply.mid(6, (bits + 7) / 8);
}

QByteArray Dv3000::decodeChannel(const QByteArray& frame, int bitCount)
{
    if (!isOpen() || frame.isEmpty())
        return {};
    if (inproc)
        return inprocDecode(frame);
    if (bitCount < 1)
        bitCount = int(frame.size()) * 8;
    const QByteArray reply =
        blockingRequest(channelPacket(frame, bitCount), pktSpeech, "Dv3000 decode: no PKT_SPEECH reply, rx=");
    if (reply.isEmpty())
        return {};
    return speechSamples(reply, quint8(reply[5]));
}

QByteArray Dv3000::decodeBatch(const QList<QByteArray>& frames, int bitCount)
{
    if (!isOpen())
        return {};
    QByteArray pcm;
    if (inproc) {
        for (const QByteArray& frame : frames)
            pcm += inprocDecode(frame);
        return pcm;
    }
    QIODevice* dev = device();
    const QSignalBlocker blocker(dev);
    int expected = 0;
    for (const QByteArray& frame : frames) {
        if (frame.isEmpty())
            continue;
        dev->write(channelPacket(frame, bitCount < 1 ? int(frame.size()) * 8 : bitCount));
        ++expected;
    }
    if (!udpMode)
        serial->waitForBytesWritten(50);
    QByteArray rx;
    int got = 0;
    QElapsedTimer clock;
    clock.start();
    while (got < expected && clock.elapsed() < 100) {
        if (waitForInput(10))
            rx += readAvailable();
        while (rx.size() >= 4) {
            if (rx[0] != startByte) {
                rx.remove(0, 1);
                continue;
            }
            // Cut at LEN + 3: the packet's last byte is left to the resynchronisation.
            const int cut = packetLength(rx, 0) - 1;
            if (rx.size() < cut)
                break;
            if (quint8(rx[3]) == pktSpeech && cut >= 7) {
                pcm += speechSamples(rx, quint8(rx[5]));
                ++got;
            }
            rx.remove(0, cut);
        }
    }
    if (got < expected)
        qInfo() << "Dv3000 decodeBatch: got" << got << "/" << expected << "frames within deadline";
    return pcm;
}

void Dv3000::await(QList<qint64>& queue)
{
    queue.append(replyClock.elapsed());
    if (!replyTimer->isActive())
        replyTimer->start(replyTimeoutMs);
}

bool Dv3000::answered(QList<qint64>& queue)
{
    if (queue.isEmpty())
        return false; // late, after it was given up, or never asked for
    queue.removeFirst();
    lostInRow = 0;
    return true;
}

void Dv3000::forgetAwaited()
{
    awaitedPcm.clear();
    awaitedAmbe.clear();
    inFlight = 0;
    lostInRow = 0;
    replyTimer->stop();
}

void Dv3000::onReplyTimeout()
{
    const qint64 now = replyClock.elapsed();
    int lost = 0;
    for (QList<qint64>* queue : {&awaitedPcm, &awaitedAmbe}) {
        while (!queue->isEmpty() && now - queue->first() >= replyTimeoutMs) {
            queue->removeFirst();
            if (queue == &awaitedPcm && inFlight > 0)
                --inFlight;
            ++lost;
        }
    }
    lostInRow += lost;
    if (lost > 0)
        qWarning().noquote() << "Dv3000:" << lost << "answer(s) from" << portName << "missing after" << replyTimeoutMs
                             << "ms — counted as lost," << lostInRow << "in a row";
    if (lostInRow >= kLostRepliesToFail) {
        lastError = QStringLiteral("%1 answers in a row lost").arg(lostInRow);
        const QString where = portName;
        pendingChannels.clear();
        close();
        emit failed(where + QStringLiteral(": ") + lastError);
        return;
    }
    pumpChannels();
    qint64 oldest = -1;
    for (const QList<qint64>* queue : {&awaitedPcm, &awaitedAmbe}) {
        if (!queue->isEmpty() && (oldest < 0 || queue->first() < oldest))
            oldest = queue->first();
    }
    if (oldest >= 0)
        replyTimer->start(int(qMax<qint64>(1, oldest + replyTimeoutMs - now)));
}

} // namespace zl::hw
