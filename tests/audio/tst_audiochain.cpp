// The chain's signal processing measured from outside: sine sweeps through the equaliser, the
// limiter's ceiling, the AGC's settling time, pass-through when everything is neutral, and
// LADSPA plug-ins: those Debian ships (swh-plugins, cmt, ladspa-sdk; port facts as their
// packages document them) and some built to misbehave.
#include "LogCapture.h"
#include "Pcm.h"
#include "audio/AudioChain.h"
#include "audio/LadspaHost.h"

#include <QFile>
#include <QJsonArray>
#include <QRandomGenerator>
#include <QTemporaryDir>
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

// A folder holding only cmt.so: on LADSPA_PATH it comes before /usr/lib/ladspa, whose amp.so
// (ladspa-sdk) offers the same labels amp_mono and amp_stereo.
struct CmtFirst {
    QTemporaryDir dir;
    CmtFirst() { QFile::link(QStringLiteral("/usr/lib/ladspa/cmt.so"), dir.filePath(QStringLiteral("cmt.so"))); }
};

} // namespace

class TestAudioChain : public QObject {
    Q_OBJECT

    CmtFirst cmt;

private slots:
    void cleanup() { qunsetenv("LADSPA_PATH"); }

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

    // Listed as their packages document them, loaded into a chain, and doing what they say:
    // the gain measured on a tone (NaN: not measured).
    void installedPlugins_data()
    {
        QTest::addColumn<bool>("cmtFirst");
        QTest::addColumn<QString>("label");
        QTest::addColumn<QString>("name");
        QTest::addColumn<QList<int>>("insOuts");
        QTest::addColumn<QList<float>>("control"); // lower, upper, default of the first control
        QTest::addColumn<QJsonArray>("ctl");
        QTest::addColumn<double>("expectedDb");
        const QList<float> amp{-70, 70, 0}, factor{0, 1, 1};
        const QString swh = "Simple amplifier";
        QTest::newRow("swh amp -6 dB") << false << "amp" << swh << QList{1, 1} << amp << QJsonArray{-6} << -6.0;
        QTest::newRow("swh amp +10 dB") << false << "amp" << swh << QList{1, 1} << amp << QJsonArray{10} << 10.0;
        QTest::newRow("swh amp default") << false << "amp" << swh << QList{1, 1} << amp << QJsonArray{} << 0.0;
        QTest::newRow("cmt amp_mono") << true << "amp_mono"
                                      << "Amplifier (Mono)" << QList{1, 1} << factor << QJsonArray{0.25} << -12.04;
        QTest::newRow("cmt amp_stereo used mono, first folder on the path")
            << true << "amp_stereo"
            << "Amplifier (Stereo)" << QList{2, 2} << factor << QJsonArray{0.5} << -6.02;
        QTest::newRow("sdk amp_stereo used mono, first file in /usr/lib/ladspa")
            << false << "amp_stereo"
            << "Stereo Amplifier" << QList{2, 2} << factor << QJsonArray{2} << 6.02;
        // Both inputs take the same block: the sum is twice the signal.
        QTest::newRow("cmt mixer, two inputs")
            << false << "mixer"
            << "Mixer (Stereo to Mono)" << QList{2, 1} << QList<float>{} << QJsonArray{} << 6.02;
        // Bounds in units of the sample rate: half of 8 kHz.
        QTest::newRow("cmt lpf") << false << "lpf"
                                 << "Low Pass Filter (One Pole)" << QList{1, 1} << QList<float>{0, 4000, 440}
                                 << QJsonArray{} << qQNaN();
    }

    void installedPlugins()
    {
        QFETCH(bool, cmtFirst);
        QFETCH(QString, label);
        QFETCH(QList<float>, control);
        QFETCH(QJsonArray, ctl);
        QFETCH(double, expectedDb);
        if (cmtFirst)
            qputenv("LADSPA_PATH", cmt.dir.path().toLocal8Bit());
        const QList<LadspaPluginInfo> catalogue = LadspaHost::scanPlugins();
        QVERIFY(std::is_sorted(catalogue.begin(), catalogue.end(),
                               [](const LadspaPluginInfo& a, const LadspaPluginInfo& b) { return a.name < b.name; }));
        const auto p = std::find_if(catalogue.begin(), catalogue.end(), [&](auto& e) { return e.label == label; });
        QVERIFY(p != catalogue.end());
        QTEST(p->name, "name");
        QTEST((QList{p->audioIns, p->audioOuts}), "insOuts");
        QCOMPARE(p->controls.isEmpty(), control.isEmpty());
        if (!control.isEmpty())
            QCOMPARE((QList<float>{p->controls[0].lower, p->controls[0].upper, p->controls[0].defaultValue}), control);
        if (qIsNaN(expectedDb))
            return;
        AudioChain chain;
        chain.configure(
            chainOf({{"lim_ceil_db", 0}, {"ladspa", QJsonArray{QJsonObject{{"label", label}, {"ctl", ctl}}}}}));
        QCOMPARE(chain.pluginCount(), 1);
        const QByteArray in = pcm::tone(8000, 1000, 4000);
        const double measured = db(pcm::rms(run(chain, in).mid(1600)) / pcm::rms(in.mid(1600)));
        QVERIFY2(std::fabs(measured - expectedDb) < 0.1, qPrintable(QString::number(measured)));
    }

    // Each is left out with a log line; the chain, and the program, go on.
    void misbehavingPluginsAreSkipped_data()
    {
        QTest::addColumn<QString>("label");
        QTest::addColumn<QString>("logged");
        QTest::newRow("crash on instantiate") << "zl_crash_instantiate"
                                              << "crashed (signal 11) in a trial run";
        QTest::newRow("crash on run") << "zl_crash_run"
                                      << "crashed (signal 11) in a trial run";
        QTest::newRow("no audio output: cmt null_ai") << "null_ai"
                                                      << "no audio input and output";
        QTest::newRow("not installed") << "zl_nowhere"
                                       << "no plug-in labelled";
    }

    void misbehavingPluginsAreSkipped()
    {
        QFETCH(QString, label);
        QFETCH(QString, logged);
        qputenv("LADSPA_PATH", ZL_BROKEN_LADSPA_DIR);
        LogCapture log;
        AudioChain chain;
        // The amplifier after the bad plug-in still loads and works.
        chain.configure(chainOf({{"lim_ceil_db", 0},
                                 {"ladspa", QJsonArray{QJsonObject{{"label", label}},
                                                       QJsonObject{{"label", "amp"}, {"ctl", QJsonArray{6}}}}}}));
        QCOMPARE(chain.pluginCount(), 1);
        QVERIFY2(log.contains(logged), qPrintable(log.lines().join('\n')));
        const QByteArray in = pcm::tone(1600, 500, 1000);
        QVERIFY(std::fabs(db(pcm::rms(run(chain, in).mid(320)) / pcm::rms(in.mid(320))) - 6.0) < 0.1);
    }
};

QTEST_GUILESS_MAIN(TestAudioChain)
#include "tst_audiochain.moc"
