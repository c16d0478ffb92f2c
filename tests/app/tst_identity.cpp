#include "TempConfigHome.h"
#include "app/Config.h"
#include "app/Identity.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QSignalSpy>
#include <QTest>

using namespace zl;

namespace {

Identity make(const QString& label, const QString& callsign, bool autoConnect = false)
{
    Identity i;
    i.label = label;
    i.callsign = callsign;
    i.auto_connect = autoConnect;
    return i;
}

} // namespace

class TestIdentity : public QObject {
    Q_OBJECT

private:
    TempConfigHome home;

    static void clearMode(const QString& mode)
    {
        setIdentities(mode, {});
        QJsonObject states = Config::instance().section(QStringLiteral("mode_state"));
        states.remove(mode);
        Config::instance().setSection(QStringLiteral("mode_state"), states);
    }

private slots:
    void emptyStringsAndFalseFlagsLeaveNoKey()
    {
        const QJsonObject o = identityToJson(make(QString(), QString()));
        QCOMPARE(o.keys(), (QStringList{"callsign", "label"}));

        Identity full = make("Home", "XX0ABC", true);
        full.id_field = "2400000";
        full.essid = "01";
        full.extra = "x";
        full.network = "BM";
        full.server = "s";
        full.password = "pw";
        full.api_key = "key";
        full.use_api_key = true;
        const QJsonObject all = identityToJson(full);
        QCOMPARE(all.size(), 11);
        QCOMPARE(all.value("auto_connect"), QJsonValue(true));
        const Identity back = identityFromJson(all);
        QCOMPARE(identityToJson(back), all);
    }

    void falseFlagReadsAsAbsent()
    {
        const Identity explicitFalse = identityFromJson(
            QJsonDocument::fromJson(R"({"label":"A","callsign":"XX0ABC","use_api_key":false})").object());
        const Identity absent =
            identityFromJson(QJsonDocument::fromJson(R"({"label":"A","callsign":"XX0ABC"})").object());
        QCOMPARE(identityToJson(explicitFalse), identityToJson(absent));
        QVERIFY(!explicitFalse.use_api_key);
        // Values of the wrong type read as empty.
        const Identity odd = identityFromJson(QJsonDocument::fromJson(R"({"label":5,"essid":1})").object());
        QCOMPARE(odd.label, QString());
        QCOMPARE(odd.essid, QString());
    }

    void setIdentitiesSignalsThenSaves()
    {
        Config& config = Config::instance();
        bool savedBeforeSignal = true;
        const QString file = config.path();
        QFile::remove(file);
        QSignalSpy changed(&config, &Config::configChanged);
        auto conn = connect(&config, &Config::configChanged, this, [&] { savedBeforeSignal = QFile::exists(file); });
        setIdentities("m17", {make("Portable", "XX0ABC")});
        disconnect(conn);
        QCOMPARE(changed.count(), 1);
        QVERIFY(!savedBeforeSignal);

        QFile saved(file);
        QVERIFY(saved.open(QIODevice::ReadOnly));
        const QJsonArray array =
            QJsonDocument::fromJson(saved.readAll()).object().value("identities").toObject().value("m17").toArray();
        QCOMPARE(array.size(), 1);
        QCOMPARE(array.at(0).toObject().value("label").toString(), QStringLiteral("Portable"));
    }

    void resolveFallsBackInOrder()
    {
        const QString mode = QStringLiteral("dmr");
        clearMode(mode);
        QCOMPARE(resolveIdentity(mode).callsign, QString());

        setIdentities(mode, {make("First", "XX1AAA"), make("Auto1", "XX2BBB", true), make("Auto2", "XX3CCC", true)});
        QCOMPARE(autoConnectLabels(mode), (QStringList{"Auto1", "Auto2"}));
        QCOMPARE(resolveIdentity(mode).label, QStringLiteral("Auto1"));

        setActiveIdentity(mode, QStringLiteral("Auto2"));
        QCOMPARE(txIdentityLabel(mode), QStringLiteral("Auto2"));
        QCOMPARE(resolveIdentity(mode).callsign, QStringLiteral("XX3CCC"));

        // The selected identity was deleted: first auto-connect one, then the first of the list.
        setIdentities(mode, {make("First", "XX1AAA"), make("Auto1", "XX2BBB", true)});
        QCOMPARE(resolveIdentity(mode).label, QStringLiteral("Auto1"));
        setIdentities(mode, {make("First", "XX1AAA"), make("Other", "XX4DDD")});
        QCOMPARE(resolveIdentity(mode).label, QStringLiteral("First"));
        // The stale label is not cleared.
        QCOMPARE(txIdentityLabel(mode), QStringLiteral("Auto2"));
    }

    void activeIdentityUsedWhenTxIdentityEmpty()
    {
        const QString mode = QStringLiteral("ysf");
        clearMode(mode);
        setIdentities(mode, {make("A", "XX1AAA"), make("B", "XX2BBB")});
        Config::instance().setSection(QStringLiteral("mode_state"),
                                      QJsonObject{{mode, QJsonObject{{"tx_identity", ""}, {"active_identity", "B"}}}});
        QCOMPARE(txIdentityLabel(mode), QStringLiteral("B"));
        QCOMPARE(resolveIdentity(mode).callsign, QStringLiteral("XX2BBB"));
    }

    void firstOfEqualLabelsWins()
    {
        const QString mode = QStringLiteral("nxdn");
        clearMode(mode);
        setIdentities(mode, {make("Same", "XX1AAA"), make("Same", "XX2BBB")});
        setActiveIdentity(mode, QStringLiteral("Same"));
        QCOMPARE(resolveIdentity(mode).callsign, QStringLiteral("XX1AAA"));
    }

    void modeKeysAreCaseSensitive()
    {
        clearMode(QStringLiteral("aprs"));
        setIdentities(QStringLiteral("aprs"), {make("A", "XX1AAA-9")});
        QVERIFY(identities(QStringLiteral("APRS")).isEmpty());
        QCOMPARE(identities(QStringLiteral("aprs")).size(), 1);
    }

    void displayText_data()
    {
        QTest::addColumn<QString>("label");
        QTest::addColumn<QString>("callsign");
        QTest::addColumn<QString>("id");
        QTest::addColumn<QString>("essid");
        QTest::addColumn<QString>("expected");
        QTest::newRow("full") << "Home"
                              << "XX0ABC"
                              << "2400000"
                              << "01"
                              << "Home (XX0ABC, 2400000-01)";
        QTest::newRow("label is callsign") << "XX0ABC"
                                           << "XX0ABC"
                                           << "2400000"
                                           << ""
                                           << "XX0ABC (2400000)";
        QTest::newRow("unnamed") << ""
                                 << ""
                                 << ""
                                 << ""
                                 << "(unnamed)";
        QTest::newRow("callsign only") << ""
                                       << "XX0ABC"
                                       << ""
                                       << ""
                                       << "XX0ABC";
        QTest::newRow("no label, id") << ""
                                      << "XX0ABC"
                                      << "2400000"
                                      << "07"
                                      << "XX0ABC (2400000-07)";
        QTest::newRow("label, other call") << "Car"
                                           << "XX0ABC"
                                           << ""
                                           << ""
                                           << "Car (XX0ABC)";
        QTest::newRow("essid without id") << "Car"
                                          << "Car"
                                          << ""
                                          << "01"
                                          << "Car";
    }

    void displayText()
    {
        QFETCH(QString, label);
        QFETCH(QString, callsign);
        QFETCH(QString, id);
        QFETCH(QString, essid);
        QFETCH(QString, expected);
        Identity i = make(label, callsign);
        i.id_field = id;
        i.essid = essid;
        QCOMPARE(identityDisplayText(i), expected);
    }

    void labelsAndHeadings()
    {
        QCOMPARE(allModeKeys().size(), 11);
        QCOMPARE(allModeKeys().first(), QStringLiteral("allstar"));
        QCOMPARE(allModeKeys().last(), QStringLiteral("ysf"));
        QCOMPARE(fieldLabels("dmr"), (QStringList{"Label", "Callsign", "DMR-ID", "ESSID"}));
        QCOMPARE(fieldLabels("aprs"), (QStringList{"Label", "Callsign+SSID", "Symbol"}));
        QCOMPARE(fieldLabels("pocsag"), (QStringList{"Label", "Username", "Subscribed RICs"}));
        QCOMPARE(fieldLabels("dstar"), (QStringList{"Label", "Callsign", "\"Your\" string"}));
        for (const QString& mode : allModeKeys())
            QCOMPARE(fieldLabels(mode).size(), mode == QLatin1String("dmr") ? 4 : 3);
        QCOMPARE(modeHeading("pocsag"), QStringLiteral("POCSAG / DAPNET accounts"));
        QCOMPARE(modeHeading("dstar"), QStringLiteral("D-STAR identities"));
        QCOMPARE(modeHeading("dmrsms"), QStringLiteral("dmrsms"));
    }
};

QTEST_GUILESS_MAIN(TestIdentity)
#include "tst_identity.moc"
