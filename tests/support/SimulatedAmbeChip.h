#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

#include <memory>

// A simulated AMBE-3000 vocoder chip on its own thread, speaking the chip's serial packet protocol
// both over UDP on 127.0.0.1, as an AMBEserver does, and over a pseudo-terminal. It answers reset,
// product id, version and configure packets, and turns channel packets into speech and back with a
// codec that keeps audio recognisable: a speech frame becomes a valid 72-bit frame carrying its peak
// level and dominant frequency, which decodes to a sine of that level and frequency. Any other frame
// decodes to silence. encodeFrame, decodeFrame and analyse are that codec, for building and checking.
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
