// The chain's signal processing measured from outside: sine sweeps through the equaliser, the
// limiter's ceiling, the AGC's settling time, and pass-through when everything is neutral.
#include "Pcm.h"
#include "audio/AudioChain.h"

#include <QJsonArray>
#include <QRandomGenerator>
#include <QTest>

#include <algorithm>
#include <cmath>

using namespace zl::audio;

namespace {

// Runs pcm through the chain in blocks of block samples and returns what comes out.
QByteArray run(AudioChain& chain, QByteArray pcm, int block = 160)
{
    auto* s = reinterpret_cast<qint16*>(pcm.data());
    const int n = int(pcm.size() / 2);
    for (int at = 0; at < n; at += block)
        chain.process(s + at, std::min(block, n - at));
    return pcm;
}

double db(double ratio)
{
    return 20.0 * std::log10(ratio);
}

AudioChainConfig chainOf(const QJsonObject& json)
{
    QJsonObject withDefaults = json;
    withDefaults.insert("enabled", true);
    return parseChain(withDefaults);
}

} // namespace

class TestAudioChain : public QObject {
    Q_OBJECT

private slots:
    // One band at a time; a peak's gain at its centre is its setting, a shelf's is half of it
    // at the corner and all of it well inside the shelf.
    void equaliserResponse_data()
    {
        QTest::addColumn<int>("band");
        QTest::addColumn<double>("gainDb");
        QTest::addColumn<double>("hz");
        QTest::addColumn<double>("expectedDb");
        const double centres[] = {250, 500, 900, 1400, 2000, 2800, 3300};
        for (int band = 1; band <= 5; ++band) {
            for (double g : {6.0, -9.0, 12.0})
                QTest::addRow("peak %g Hz %+g dB", centres[band], g) << band << g << centres[band] << g;
        }
        for (double g : {6.0, -12.0}) {
            QTest::addRow("low shelf corner %+g dB", g) << 0 << g << 250.0 << g / 2;
            QTest::addRow("low shelf inside %+g dB", g) << 0 << g << 40.0 << g;
            QTest::addRow("high shelf corner %+g dB", g) << 6 << g << 3300.0 << g / 2;
            QTest::addRow("high shelf inside %+g dB", g) << 6 << g << 3950.0 << g;
        }
        QTest::newRow("flat band off centre") << 3 << 0.0 << 1234.0 << 0.0;
    }

    void equaliserResponse()
    {
        QFETCH(int, band);
        QFETCH(double, gainDb);
        QFETCH(double, hz);
        QFETCH(double, expectedDb);
        QJsonArray eq = {0, 0, 0, 0, 0, 0, 0};
        eq[band] = gainDb;
        AudioChain chain;
        chain.configure(chainOf({{"eq_on", true}, {"eq", eq}, {"lim_ceil_db", 0}}));
        const QByteArray in = pcm::tone(16000, hz, 2000);
        // The first half second lets the filters settle.
        const QByteArray out = run(chain, in).mid(8000);
        const double measured = db(pcm::rms(out) / pcm::rms(in.mid(8000)));
        QVERIFY2(std::fabs(measured - expectedDb) <= 0.5,
                 qPrintable(QStringLiteral("%1 dB at %2 Hz").arg(measured).arg(hz)));
    }

    // Everything neutral: every 16-bit value, the extremes included, comes out as it went in,
    // in blocks small, normal and too long for the work space.
    void neutralChainIsBitExact_data()
    {
        QTest::addColumn<int>("block");
        QTest::newRow("1") << 1;
        QTest::newRow("160") << 160;
        QTest::newRow("2048") << 2048;
        QTest::newRow("4000 (no work space)") << 4000;
    }

    void neutralChainIsBitExact()
    {
        QFETCH(int, block);
        QByteArray in(65536 * 2, Qt::Uninitialized);
        auto* s = reinterpret_cast<qint16*>(in.data());
        for (int i = 0; i < 65536; ++i)
            s[i] = qint16(i - 32768);
        std::shuffle(s, s + 65536, *QRandomGenerator::global());
        AudioChain chain;
        chain.configure(chainOf({{"eq_on", true}, {"eq", QJsonArray{0, 0, 0, 0, 0, 0, 0}}, {"lim_ceil_db", 0}}));
        QCOMPARE(run(chain, in, block), in);
    }

    void limiterHoldsItsCeiling_data()
    {
        QTest::addColumn<QJsonObject>("chain");
        QTest::addColumn<QByteArray>("signal");
        QTest::addColumn<int>("ceiling"); // 32767 * 10^(dB/20), in whole samples
        QByteArray noise(48000 * 2, Qt::Uninitialized);
        for (qsizetype i = 0; i < noise.size() / 2; ++i)
            reinterpret_cast<qint16*>(noise.data())[i] = qint16(QRandomGenerator::global()->bounded(-32768, 32768));
        QByteArray bursts = pcm::tone(24000, 700, 3000) + pcm::tone(800, 1900, 32000) + pcm::tone(24000, 300, 500);
        QTest::newRow("default ceiling, full-scale noise") << QJsonObject{} << noise << 29889;
        QTest::newRow("-6 dB, preamp +12 dB on a loud tone")
            << QJsonObject{{"lim_ceil_db", -6}, {"gain_db", 12}} << pcm::tone(24000, 1000, 20000) << 16422;
        QTest::newRow("-20 dB, sudden bursts with AGC and EQ")
            << QJsonObject{{"lim_ceil_db", -20},
                           {"agc", true},
                           {"eq_on", true},
                           {"eq", QJsonArray{12, 12, 12, 12, 12, 12, 12}}}
            << bursts << 3276;
        // Capped at full scale, where only the 16-bit range bounds the samples.
        QTest::newRow("+3 dB is full scale") << QJsonObject{{"lim_ceil_db", 3}, {"gain_db", 6}} << noise << 32768;
    }

    void limiterHoldsItsCeiling()
    {
        QFETCH(QJsonObject, chain);
        QFETCH(QByteArray, signal);
        QFETCH(int, ceiling);
        AudioChain c;
        c.configure(chainOf(chain));
        const QByteArray out = run(c, signal);
        const auto* s = reinterpret_cast<const qint16*>(out.constData());
        const int peak = *std::max_element(s, s + out.size() / 2,
                                           [](qint16 a, qint16 b) { return std::abs(int(a)) < std::abs(int(b)); });
        QVERIFY2(std::abs(peak) <= ceiling, qPrintable(QString::number(peak)));
        // It limits, it does not mute.
        QVERIFY(std::abs(peak) > ceiling / 2);
    }

    // The AGC rises slowly and falls fast; a pause holds the gain where it was.
    void agcReachesItsTarget_data()
    {
        QTest::addColumn<QJsonObject>("chain");
        QTest::addColumn<double>("inputRms");
        QTest::addColumn<int>("withinMs");
        QTest::addColumn<double>("targetRms");
        QTest::newRow("quiet, rising") << QJsonObject{{"agc", true}} << 1200.0 << 3000 << 8000.0;
        QTest::newRow("loud, falling") << QJsonObject{{"agc", true}} << 20000.0 << 200 << 8000.0;
        QTest::newRow("target 0 reads as 8000")
            << QJsonObject{{"agc", true}, {"agc_target", 0}} << 3000.0 << 3000 << 8000.0;
        QTest::newRow("own target") << QJsonObject{{"agc", true}, {"agc_target", 3000}} << 12000.0 << 200 << 3000.0;
        // Too quiet for +18 dB: it stops at its largest gain.
        QTest::newRow("whisper, gain capped") << QJsonObject{{"agc", true}} << 400.0 << 6000 << 400.0 * 7.943;
    }

    void agcReachesItsTarget()
    {
        QFETCH(QJsonObject, chain);
        QFETCH(double, inputRms);
        QFETCH(int, withinMs);
        QFETCH(double, targetRms);
        AudioChain c;
        c.configure(chainOf(chain));
        const int samples = withinMs * 8;
        const QByteArray out = run(c, pcm::tone(samples, 440, inputRms * std::sqrt(2.0)));
        const double last = pcm::rms(out.right(320));
        QVERIFY2(std::fabs(db(last / targetRms)) <= 1.0, qPrintable(QString::number(last)));
        // Before: not there yet, so that the time says something.
        QVERIFY(std::fabs(db(pcm::rms(out.left(320)) / targetRms)) > 1.0);
        // A pause of two seconds leaves the gain alone.
        const float gain = c.agcGainNow();
        run(c, pcm::tone(16000, 440, 100));
        QCOMPARE(c.agcGainNow(), gain);
    }
};

QTEST_GUILESS_MAIN(TestAudioChain)
#include "tst_audiochain.moc"
