// The LADSPA host against the plug-ins Debian ships (swh-plugins, cmt, ladspa-sdk) and against
// plug-ins built to misbehave. Port facts are those the packages document (analyseplugin).
#include "LogCapture.h"
#include "Pcm.h"
#include "audio/AudioChain.h"
#include "audio/LadspaHost.h"

#include <QFile>
#include <QJsonArray>
#include <QTemporaryDir>
#include <QTest>

#include <algorithm>
#include <cmath>

using namespace zl::audio;

namespace {

// A folder holding only cmt.so: on LADSPA_PATH it comes before /usr/lib/ladspa, whose amp.so
// (ladspa-sdk) offers the same labels amp_mono and amp_stereo.
struct CmtFirst {
    QTemporaryDir dir;
    CmtFirst() { QFile::link(QStringLiteral("/usr/lib/ladspa/cmt.so"), dir.filePath(QStringLiteral("cmt.so"))); }
};

const LadspaPluginInfo* find(const QList<LadspaPluginInfo>& catalogue, const QString& label)
{
    const auto it =
        std::find_if(catalogue.begin(), catalogue.end(), [&](const LadspaPluginInfo& p) { return p.label == label; });
    return it == catalogue.end() ? nullptr : &*it;
}

// Gain in dB of a 1 kHz tone through a chain that holds only this plug-in.
double gainThrough(const QString& label, const QJsonArray& ctl, int* loaded)
{
    AudioChain chain;
    chain.configure(parseChain(
        {{"enabled", true}, {"lim_ceil_db", 0}, {"ladspa", QJsonArray{QJsonObject{{"label", label}, {"ctl", ctl}}}}}));
    *loaded = chain.pluginCount();
    const QByteArray in = pcm::tone(8000, 1000, 4000);
    QByteArray out = in;
    for (int at = 0; at < 8000; at += 160)
        chain.process(reinterpret_cast<qint16*>(out.data()) + at, 160);
    return 20.0 * std::log10(pcm::rms(out.mid(1600)) / pcm::rms(in.mid(1600)));
}

} // namespace

class TestLadspaHost : public QObject {
    Q_OBJECT

    CmtFirst cmt;

private slots:
    void cleanup() { qunsetenv("LADSPA_PATH"); }

    void searchPath_data()
    {
        QTest::addColumn<QByteArray>("env"); // null: unset
        QTest::addColumn<QStringList>("folders");
        const QStringList fixed{"/usr/lib/ladspa", "/usr/local/lib/ladspa"};
        QTest::newRow("unset") << QByteArray() << fixed;
        QTest::newRow("two, in order") << QByteArray("/b:/a") << QStringList{"/b", "/a"} + fixed;
        QTest::newRow("empty parts dropped") << QByteArray("::/x::") << QStringList{"/x"} + fixed;
    }

    void searchPath()
    {
        QFETCH(QByteArray, env);
        if (!env.isNull())
            qputenv("LADSPA_PATH", env);
        QTEST(LadspaHost::searchPath(), "folders");
    }

    void catalogue_data()
    {
        QTest::addColumn<bool>("cmtFirst");
        QTest::addColumn<QString>("label");
        QTest::addColumn<QString>("name");
        QTest::addColumn<int>("ins");
        QTest::addColumn<int>("outs");
        QTest::addColumn<QList<float>>("control"); // lower, upper, default of the first control
        QTest::newRow("swh amp") << false << "amp"
                                 << "Simple amplifier" << 1 << 1 << QList<float>{-70, 70, 0};
        QTest::newRow("sdk amp_stereo, first file in /usr/lib/ladspa")
            << false << "amp_stereo"
            << "Stereo Amplifier" << 2 << 2 << QList<float>{0, 1, 1};
        QTest::newRow("cmt amp_stereo, first folder on the path")
            << true << "amp_stereo"
            << "Amplifier (Stereo)" << 2 << 2 << QList<float>{0, 1, 1};
        // Bounds in units of the sample rate: half of 8 kHz.
        QTest::newRow("cmt lpf") << false << "lpf"
                                 << "Low Pass Filter (One Pole)" << 1 << 1 << QList<float>{0, 4000, 440};
        QTest::newRow("cmt null_ai") << false << "null_ai"
                                     << "Null (Audio Input)" << 1 << 0 << QList<float>{};
    }

    void catalogue()
    {
        QFETCH(bool, cmtFirst);
        QFETCH(QString, label);
        QFETCH(QList<float>, control);
        if (cmtFirst)
            qputenv("LADSPA_PATH", cmt.dir.path().toLocal8Bit());
        const QList<LadspaPluginInfo> catalogue = LadspaHost::scanPlugins();
        QVERIFY(std::is_sorted(catalogue.begin(), catalogue.end(),
                               [](const LadspaPluginInfo& a, const LadspaPluginInfo& b) { return a.name < b.name; }));
        const LadspaPluginInfo* p = find(catalogue, label);
        QVERIFY(p);
        QTEST(p->name, "name");
        QTEST(p->audioIns, "ins");
        QTEST(p->audioOuts, "outs");
        QCOMPARE(p->controls.isEmpty(), control.isEmpty());
        if (!control.isEmpty())
            QCOMPARE((QList<float>{p->controls[0].lower, p->controls[0].upper, p->controls[0].defaultValue}), control);
    }

    void pluginsChangeTheSignal_data()
    {
        QTest::addColumn<bool>("cmtFirst");
        QTest::addColumn<QString>("label");
        QTest::addColumn<QJsonArray>("ctl");
        QTest::addColumn<double>("expectedDb");
        QTest::newRow("swh amp -6 dB") << false << "amp" << QJsonArray{-6} << -6.0;
        QTest::newRow("swh amp +10 dB") << false << "amp" << QJsonArray{10} << 10.0;
        QTest::newRow("swh amp default") << false << "amp" << QJsonArray{} << 0.0;
        QTest::newRow("cmt amp_mono x0.25") << true << "amp_mono" << QJsonArray{0.25} << -12.04;
        QTest::newRow("cmt amp_stereo used mono x0.5") << true << "amp_stereo" << QJsonArray{0.5} << -6.02;
        QTest::newRow("sdk amp_stereo used mono x2") << false << "amp_stereo" << QJsonArray{2} << 6.02;
        // Both inputs take the same block: the sum is twice the signal.
        QTest::newRow("cmt mixer, two inputs") << false << "mixer" << QJsonArray{} << 6.02;
    }

    void pluginsChangeTheSignal()
    {
        QFETCH(bool, cmtFirst);
        QFETCH(QString, label);
        QFETCH(QJsonArray, ctl);
        QFETCH(double, expectedDb);
        if (cmtFirst)
            qputenv("LADSPA_PATH", cmt.dir.path().toLocal8Bit());
        int loaded = 0;
        const double measured = gainThrough(label, ctl, &loaded);
        QCOMPARE(loaded, 1);
        QVERIFY2(std::fabs(measured - expectedDb) < 0.1, qPrintable(QString::number(measured)));
    }

    // Each is left out with a log line; the chain, and the program, go on.
    void misbehavingPluginsAreSkipped_data()
    {
        QTest::addColumn<QString>("label");
        QTest::addColumn<QString>("logged");
        QTest::newRow("crash on instantiate") << "zl_crash_instantiate"
                                              << "crashed in a trial run";
        QTest::newRow("crash on run") << "zl_crash_run"
                                      << "crashed in a trial run";
        QTest::newRow("no instance") << "zl_null_instance"
                                     << "could not be instantiated";
        QTest::newRow("no audio output") << "zl_no_output"
                                         << "no audio input and output";
        QTest::newRow("cmt null_ai") << "null_ai"
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
        chain.configure(parseChain({{"enabled", true},
                                    {"lim_ceil_db", 0},
                                    {"ladspa", QJsonArray{QJsonObject{{"label", label}},
                                                          QJsonObject{{"label", "amp"}, {"ctl", QJsonArray{6}}}}}}));
        QCOMPARE(chain.pluginCount(), 1);
        QVERIFY2(log.contains(logged), qPrintable(log.lines().join('\n')));
        QByteArray pcm = pcm::tone(1600, 500, 1000);
        chain.process(reinterpret_cast<qint16*>(pcm.data()), 1600);
        QVERIFY(std::fabs(pcm::rms(pcm.mid(320)) / pcm::rms(pcm::tone(1600, 500, 1000).mid(320)) - 1.995) < 0.02);
    }
};

QTEST_GUILESS_MAIN(TestLadspaHost)
#include "tst_ladspahost.moc"
