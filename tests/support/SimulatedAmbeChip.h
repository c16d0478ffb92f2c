#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

#include <memory>

// A simulated AMBE-3000 vocoder chip for tests. It speaks the chip's serial packet protocol
// (0x61, 16-bit LEN of which 12 bits count, type, fields) on two transports at once:
//   - UDP on 127.0.0.1, as an AMBEserver does: listenUdp() returns the port;
//   - a pseudo-terminal: openPty() returns the slave device (e.g. /dev/pts/7), which the
//     code under test opens as a serial port; the line settings it chose can be observed.
// The chip runs on its own thread, so it answers while the caller blocks in a wait.
//
// What it answers:
//   reset (0x33)             -> PKT_READY (control 0x39)
//   product id (0x30)        -> "AMBE3000R"   (see setIdentityReplies)
//   version (0x31)           -> a version text
//   configure packet         -> a status per field, init (0x0B) with initStatus()
//   PKT_CHANNEL (9 bytes)    -> PKT_SPEECH, 160 samples
//   PKT_SPEECH (160 samples) -> PKT_CHANNEL, 72 bits
//
// Its codec keeps audio recognisable end to end: a speech frame becomes a valid 72-bit AMBE
// frame whose parameters carry the frame's peak level and dominant frequency, and such a
// frame decodes to a sine of that level and frequency (phase continuous across frames).
// Any other frame decodes to silence. encodeFrame, decodeFrame and analyse are the same
// codec for tests to build input and to check output.
class SimulatedAmbeChip {
public:
    enum class IdentityReplies {
        Normal,      // product id and version as asked
        VersionOnly, // answers both requests with the version, as some firmware does
        Silent,      // answers neither: a chip at the wrong baud
    };

    struct Tone {
        int level = 0;     // peak amplitude
        int frequency = 0; // Hz; 0 when no period was found
    };

    SimulatedAmbeChip();
    ~SimulatedAmbeChip();
    SimulatedAmbeChip(const SimulatedAmbeChip&) = delete;
    SimulatedAmbeChip& operator=(const SimulatedAmbeChip&) = delete;

    // Serves on 127.0.0.1; returns the port, 0 on failure. Replies go to the last sender.
    quint16 listenUdp();
    // Opens a pseudo-terminal; returns the slave device path, empty on failure.
    QString openPty();

    // Every reply is sent this many milliseconds after its request (default 0).
    void setDelay(int ms);
    void setIdentityReplies(IdentityReplies replies);
    // Status byte of the init field in the configure reply (default 0); -1: no reply at all.
    void setInitStatus(int status);
    // While held, speech and channel replies wait; releasing sends them in order.
    void setHoldReplies(bool hold);
    // The next n speech or channel replies are never sent, as on a lossy network.
    void dropReplies(int n);
    // Sends bytes as they are to the peer of the transport last used (one datagram on UDP).
    void sendRaw(const QByteArray& bytes);

    // Counts of packets received, by type (0 control, 1 channel, 2 speech).
    int packetsReceived(int type) const;
    int productIdRequests() const;
    int configureRequests() const;
    // The twelve rate parameter bytes of the last configure packet.
    QByteArray lastRateWords() const;
    // Pseudo-terminal only: the line's baud rate at each product-id request, in order.
    QList<int> probeBauds() const;

    // 160 samples to a 9-byte frame, and back to 320 bytes of host-order samples.
    static QByteArray encodeFrame(const qint16* pcm);
    static QByteArray decodeFrame(const QByteArray& frame, double* phase = nullptr);
    // Peak level and dominant frequency of host-order 16-bit samples at 8 kHz.
    static Tone analyse(const QByteArray& pcm);
    // A sine frame of n samples (host order), for feeding the encoder.
    static QByteArray sine(int level, int frequency, int samples = 160);

private:
    class Engine;
    std::unique_ptr<Engine> engine;
};
