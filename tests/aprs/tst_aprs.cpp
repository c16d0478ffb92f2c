#include "AprsIsServer.h"
#include "LogCapture.h"
#include "TempConfigHome.h"
#include "app/Config.h"
#include "aprs/AprsBeacon.h"
#include "aprs/AprsClient.h"
#include "aprs/AprsGeo.h"
#include "aprs/AprsPacket.h"
#include "aprs/DmrBridge.h"
#include "dmr/DmrPeerManager.h"

#include <QFile>
#include <QJsonObject>
#include <QProcess>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QStandardPaths>
#include <QTest>

using namespace zl::aprs;

namespace {

// What decode_aprs (Dire Wolf) makes of one packet: a line naming the kind ("Position, <symbol>,
// <device>", "MIC-E, …", "APRS Message 17 for "X", …"), the coordinates as "N 49 03.5000, W …" and the
// text. The digipeater path is left out: decode_aprs checks it as on the radio, where a server name of
// more than six characters cannot occur, and none of the fields compared depend on it.
struct Reference {
    QString kind;
    QString symbol;
    QString id;
    QString addressee;
    QString text;
    bool located = false;
    bool invalid = false;
    double lat = 0.0;
    double lon = 0.0;
};

Reference decodeAprs(const QString& tool, QByteArray line)
{
    const int colon = line.indexOf(':');
    const int comma = line.indexOf(',');
    if (comma >= 0 && comma < colon)
        line.remove(comma, colon - comma);
    QProcess process;
    process.start(tool, {});
    process.write(line + '\n');
    process.closeWriteChannel();
    process.waitForFinished(10000);
    QString out = QString::fromUtf8(process.readAllStandardOutput());
    out.remove(QRegularExpression(QStringLiteral("\x1b\\[[0-9;]*[A-Za-z]")));
    const QStringList lines = out.split(QLatin1Char('\n'), Qt::SkipEmptyParts);

    static const QRegularExpression head(
        QStringLiteral("^(Position with time|Position|MIC-E|Weather Report|Object|Item|Status Report|Telemetry|"
                       "Positionless Weather Report|(APRS|ACK|REJ) [Mm]essage( (\\S*) for \"([^\"]*)\")?), (.*)$"));
    static const QRegularExpression coords(QStringLiteral("^([NS]) (\\d+) ([\\d.]+), ([EW]) (\\d+) ([\\d.]+)"));
    Reference ref;
    int at = 0;
    QRegularExpressionMatch m;
    while (at < lines.size() && !(m = head.match(lines.at(at))).hasMatch())
        ++at;
    if (!m.hasMatch())
        return ref;
    ref.kind = m.captured(2).isEmpty() ? m.captured(1) : m.captured(2) + (m.captured(3).isEmpty() ? "" : " for");
    ref.id = m.captured(4);
    ref.addressee = m.captured(5);
    ref.symbol = m.captured(6).section(QStringLiteral(", "), 0, 0);
    if (ref.kind == QLatin1String("Object") || ref.kind == QLatin1String("Item"))
        ref.symbol.clear();
    if (++at < lines.size()) {
        const QRegularExpressionMatch c = coords.match(lines.at(at));
        ref.invalid = lines.at(at).contains(QLatin1String("Invalid"));
        if (c.hasMatch()) {
            ref.located = true;
            ref.lat = (c.captured(2).toDouble() + c.captured(3).toDouble() / 60) * (c.captured(1) == "S" ? -1 : 1);
            ref.lon = (c.captured(5).toDouble() + c.captured(6).toDouble() / 60) * (c.captured(4) == "W" ? -1 : 1);
        }
        if (ref.located || ref.invalid)
            ++at;
    }
    if (at < lines.size())
        ref.text = lines.at(at);
    return ref;
}

// The name decode_aprs gives a symbol, read from a plain position that carries it.
QString symbolName(const QString& tool, char table, char code)
{
    return decodeAprs(tool, QByteArray("X>APRS:!0000.00N") + table + "00000.00W" + code).symbol;
}

} // namespace
using State = AprsClient::State;

class TestAprs : public QObject {
    Q_OBJECT

private:
    qint64 now = 1'000'000;

    // A client logged in to the server as XX0ABC-9, its clock stepped by the test.
    void logIn(AprsClient& client, AprsIsServer& server)
    {
        client.setServer(QStringLiteral("127.0.0.1"), server.port());
        client.setCallsign(QStringLiteral("xx0abc-9"));
        client.setClockForTests([this] { return now; });
        client.setTimersForTests(10, 20);
        client.start();
        QTRY_COMPARE(server.logins, 1);
        QCOMPARE(client.state(), State::LoggedIn);
    }

private slots:
    // Positions as trackers send them; the compressed one is the APRS reference's example, the
    // Mic-E values come from an independent decoder.
    void parsesPositions_data()
    {
        QTest::addColumn<QByteArray>("line");
        QTest::addColumn<double>("lat");
        QTest::addColumn<double>("lon");
        QTest::addColumn<QString>("symbol");
        QTest::addColumn<int>("course");
        QTest::addColumn<double>("kmh");
        QTest::addColumn<QString>("comment");
        QTest::newRow("plain") << QByteArray("A>APRS:=4903.50N/07201.75W-Test") << 49.058333 << -72.029167 << "/-" << -1
                               << -1.0 << "Test";
        QTest::newRow("timestamp") << QByteArray("A>APRS:/092345z4903.50N/07201.75W>Test") << 49.058333 << -72.029167
                                   << "/>" << -1 << -1.0 << "Test";
        QTest::newRow("compressed") << QByteArray("A>APRS:!/5L!!<*e7>7P[") << 49.5 << -72.75 << "/>" << 88 << 67.1017
                                    << "";
        QTest::newRow("mic-e") << QByteArray("OH7LZB-2>TQ4W2V,WIDE2-1,qAo,OH7LZB:`c51!f?>/]\"3x}=") << 41.787667
                               << -71.420167 << "/>" << 35 << 105.564 << "]\"3x}=";
        QTest::newRow("mic-e 800 knots wrap") << QByteArray("K0ABC-9>S32U6T:`(_fn\"Oj/Moving") << 33.427333 << -12.129
                                              << "/j" << 251 << 37.04 << "Moving";
    }
    void parsesPositions()
    {
        QFETCH(QByteArray, line);
        const ParsedPacket p = parseLine(line);
        QCOMPARE(p.type, ParsedPacket::Position);
        QVERIFY(p.hasPosition);
        QFETCH(double, lat);
        QFETCH(double, lon);
        QFETCH(QString, symbol);
        QFETCH(int, course);
        QFETCH(double, kmh);
        QFETCH(QString, comment);
        QVERIFY2(qAbs(p.latitude - lat) < 1e-5 && qAbs(p.longitude - lon) < 1e-5,
                 qPrintable(QStringLiteral("%1 %2").arg(p.latitude).arg(p.longitude)));
        QCOMPARE(QString(QLatin1Char(p.symbolTable)) + QLatin1Char(p.symbolCode), symbol);
        QCOMPARE(p.course, course);
        QVERIFY2(qAbs(p.speedKmh - kmh) < 1e-3, qPrintable(QString::number(p.speedKmh)));
        QCOMPARE(p.comment, comment);
    }

    void parsesTheRest_data()
    {
        QTest::addColumn<QByteArray>("line");
        QTest::addColumn<int>("type");
        QTest::addColumn<QString>("text"); // addressee|body|id, or the comment
        QTest::newRow("empty info") << QByteArray("A>B:") << int(ParsedPacket::Unknown) << "";
        QTest::newRow("no source") << QByteArray(">B:x") << int(ParsedPacket::Unknown) << "";
        QTest::newRow("addressee of 10") << QByteArray("A>B::XX0ABC-100:hi") << int(ParsedPacket::Unknown) << "";
        QTest::newRow("message") << QByteArray("A>B,TCPIP*::XX0ABC-9 :hello{42") << int(ParsedPacket::Message)
                                 << "XX0ABC-9|hello|42";
        QTest::newRow("status") << QByteArray("A>B:>on the air") << int(ParsedPacket::Status) << "on the air";
        QTest::newRow("short compressed") << QByteArray("A>B:!/5L!!<*e7") << int(ParsedPacket::Position) << "";
        QTest::newRow("bad mic-e") << QByteArray("A>APRS:`c51!f?>/") << int(ParsedPacket::Other) << "`c51!f?>/";
    }
    void parsesTheRest()
    {
        QFETCH(QByteArray, line);
        QFETCH(int, type);
        QFETCH(QString, text);
        const ParsedPacket p = parseLine(line);
        QCOMPARE(int(p.type), type);
        QVERIFY(!p.hasPosition);
        if (p.type == ParsedPacket::Message)
            QCOMPARE(QStringList({p.addressee, p.body, p.msgId}).join(QLatin1Char('|')), text);
        else
            QCOMPARE(p.comment, text);
    }

    // A corpus of APRS-IS lines of the shapes stations send (plain, compressed and Mic-E positions,
    // messages, acks, status, objects, weather, telemetry, damaged lines) read by this parser and by
    // Dire Wolf's decode_aprs must give the same positions, symbols, addressees and texts.
    void agreesWithAnIndependentDecoder()
    {
        const QString tool = QStandardPaths::findExecutable(QStringLiteral("decode_aprs"));
        if (tool.isEmpty())
            QSKIP("decode_aprs (Debian package direwolf) is not installed: no independent decoder to compare with");
        QFile corpus(QStringLiteral(ZL_APRS_TESTDATA "/aprs-is-lines.txt"));
        QVERIFY(corpus.open(QIODevice::ReadOnly));
        QStringList differences;
        int compared = 0;
        const auto differ = [&](const QByteArray& line, const QString& what) {
            differences << QString::fromUtf8(line) + QStringLiteral("\n    ") + what;
        };
        for (const QByteArray& line : corpus.readAll().split('\n')) {
            if (line.isEmpty())
                continue;
            const Reference ref = decodeAprs(tool, line);
            const ParsedPacket p = parseLine(line);
            ++compared;
            const bool positionKind = ref.kind.startsWith(QLatin1String("Position with")) ||
                                      ref.kind == QLatin1String("Position") || ref.kind == QLatin1String("MIC-E") ||
                                      ref.kind == QLatin1String("Weather Report");
            if (positionKind && ref.located && !ref.invalid) {
                if (!p.hasPosition)
                    differ(line, QStringLiteral("no position, decode_aprs %1 %2").arg(ref.lat).arg(ref.lon));
                else if (qAbs(p.latitude - ref.lat) > 1e-5 || qAbs(p.longitude - ref.lon) > 1e-5)
                    differ(line, QStringLiteral("%1 %2, decode_aprs %3 %4")
                                     .arg(p.latitude, 0, 'f', 6)
                                     .arg(p.longitude, 0, 'f', 6)
                                     .arg(ref.lat, 0, 'f', 6)
                                     .arg(ref.lon, 0, 'f', 6));
                else if (symbolName(tool, p.symbolTable, p.symbolCode) != ref.symbol)
                    differ(line, QStringLiteral("symbol %1%2 is not \"%3\"")
                                     .arg(QLatin1Char(p.symbolTable))
                                     .arg(QLatin1Char(p.symbolCode))
                                     .arg(ref.symbol));
            } else if (p.hasPosition) {
                differ(line, QStringLiteral("a position where decode_aprs has none (%1)").arg(ref.kind));
            } else if (ref.kind.endsWith(QLatin1String(" for"))) {
                const QString expected =
                    ref.kind.startsWith(QLatin1String("APRS")) ? ref.text : ref.kind.left(3).toLower() + ref.id;
                const QString got = p.body + (p.msgId.isEmpty() || p.isAck ? QString() : "{" + p.msgId);
                if (p.type != ParsedPacket::Message || p.addressee != ref.addressee || got != expected)
                    differ(line, QStringLiteral("message to \"%1\": \"%2\", decode_aprs \"%3\": \"%4\"")
                                     .arg(p.addressee, got, ref.addressee, expected));
            } else if (p.type == ParsedPacket::Message) {
                differ(line, QStringLiteral("a message where decode_aprs has %1").arg(ref.kind));
            } else if (ref.kind == QLatin1String("Status Report") &&
                       (p.type != ParsedPacket::Status || p.comment != ref.text)) {
                differ(line, QStringLiteral("status \"%1\", decode_aprs \"%2\"").arg(p.comment, ref.text));
            }
        }
        QVERIFY2(differences.isEmpty(), qPrintable(differences.join(QLatin1Char('\n'))));
        QVERIFY(compared >= 60);
    }

    // Short messages on the bridge talk group in the form "CALL text" go to APRS-IS.
    void bridgesShortMessagesOfTheTalkgroup_data()
    {
        QTest::addColumn<uint>("tg");
        QTest::addColumn<QString>("sms");
        QTest::addColumn<QByteArray>("sent"); // the message line, empty for none
        QTest::newRow("call with ssid") << 9u << " xx0abc-9 hello there" << QByteArray("XX0ABC-9 :hello there{1");
        QTest::newRow("text alone") << 9u << "hello" << QByteArray();
        QTest::newRow("seven letters") << 9u << "ABCDEFG hi" << QByteArray();
        QTest::newRow("other talkgroup") << 91u << "XX0ABC hi" << QByteArray();
        QTest::newRow("cut to 67") << 9u << "XX0ABC " + QString(100, 'y') << "XX0ABC   :" + QByteArray(67, 'y') + "{1";
    }
    void bridgesShortMessagesOfTheTalkgroup()
    {
        QFETCH(uint, tg);
        QFETCH(QString, sms);
        QFETCH(QByteArray, sent);
        TempConfigHome home;
        zl::Config::instance().setSection("aprs", {{"dmr_bridge_enabled", true}, {"dmr_bridge_tg", 9}});
        AprsIsServer server;
        AprsClient client;
        logIn(client, server);
        DmrBridge bridge(&client);
        QSignalSpy bridged(&bridge, &DmrBridge::sentToAprs);
        emit zl::dmr::DmrPeerManager::instance().smsReceived("Home", "Net", 2400002, tg, false, sms, "etsi");
        QCOMPARE(bridged.count(), sent.isEmpty() ? 0 : 1);
        if (!sent.isEmpty())
            QTRY_VERIFY(server.lines.contains("XX0ABC-9>APRS,TCPIP*::" + sent));
    }

    void formatsLines()
    {
        QCOMPARE(formatPosition(QStringLiteral("xx0abc"), 59.5, 8.25, '/', '-', QStringLiteral(" hi ")),
                 QByteArray("XX0ABC>APRS,TCPIP*:=5930.00N/00815.00E-hi\r\n"));
        QVERIFY(formatPosition(QStringLiteral("A"), -0.5, -0.5, '/', '-', {}).contains("0030.00S/00030.00W"));
        QCOMPARE(
            formatMessage(QStringLiteral("a"), QStringLiteral("xx0abc"), QStringLiteral("hi"), QStringLiteral("7")),
            QByteArray("A>APRS,TCPIP*::XX0ABC   :hi{7\r\n"));
        QCOMPARE(formatAck(QStringLiteral("a"), QStringLiteral("XX0ABCDEFG"), QStringLiteral("7")),
                 QByteArray("A>APRS,TCPIP*::XX0ABCDEF:ack7\r\n"));
        // The published passcode of N0CALL; the SSID does not count.
        QCOMPARE(passcode(QStringLiteral("N0CALL")), 13023);
        QCOMPARE(passcode(QStringLiteral("n0call-9")), 13023);
    }

    void geometry()
    {
        // One degree of latitude and a quarter turn along the equator.
        QVERIFY(qAbs(distanceKm(0, 0, 1, 0) - 111.195) < 0.01);
        QVERIFY(qAbs(bearingDeg(0, 0, 0, 1) - 90.0) < 1e-9);
        QVERIFY(qAbs(bearingDeg(10, 10, 0, 10) - 180.0) < 1e-9);
    }

    void logsInAndReportsTheAnswer_data()
    {
        QTest::addColumn<int>("pass");
        QTest::addColumn<bool>("verified");
        QTest::newRow("right passcode") << 13023 << true;
        QTest::newRow("wrong passcode") << 1 << false;
    }
    void logsInAndReportsTheAnswer()
    {
        QFETCH(int, pass);
        QFETCH(bool, verified);
        AprsIsServer server;
        server.acceptPasscode("N0CALL", pass);
        AprsClient client;
        QSignalSpy login(&client, &AprsClient::loginResult);
        client.setServer(QStringLiteral("127.0.0.1"), server.port());
        client.setCallsign(QStringLiteral("n0call-10"));
        client.setFilter(QStringLiteral("m/50"));
        client.start();
        QTRY_COMPARE(login.size(), 1);
        QCOMPARE(server.lines.first(), QByteArray("user N0CALL-10 pass 13023 vers zephyrlake 0.1 filter m/50"));
        QCOMPARE(login.first().at(0).toBool(), verified);
        QCOMPARE(client.state(), State::LoggedIn);
        QCOMPARE(client.lastErrorText().isEmpty(), verified);
    }

    void messagesAreAckedRetriedOrGivenUp()
    {
        AprsIsServer server;
        AprsClient client;
        logIn(client, server);
        QSignalSpy status(&client, &AprsClient::messageStatus);
        QCOMPARE(client.sendTrackedMessage(QStringLiteral("dl1b"), QStringLiteral("one")), QStringLiteral("1"));
        QCOMPARE(client.sendTrackedMessage(QStringLiteral("dl1b"), QStringLiteral("two")), QStringLiteral("2"));
        QTRY_VERIFY(server.lines.contains("XX0ABC-9>APRS,TCPIP*::DL1B     :two{2"));
        // An ack to the base callsign counts; one for another station does not.
        server.send("DL1B>APRS,TCPIP*::XX0ABC   :ACK1");
        server.send("DL1B>APRS,TCPIP*::XX9ZZZ   :ack2");
        QTRY_COMPARE(status.size(), 3);
        QCOMPARE(status.last(), QVariantList({"1", "DL1B", "acked"}));
        QStringList seen;
        for (int step = 0; step < 4; ++step) {
            now += 20000;
            QTRY_COMPARE(status.size(), 4 + step);
            seen << status.last().at(2).toString();
        }
        QCOMPARE(seen, QStringList({"retry", "retry", "retry", "timeout"}));
        QTRY_COMPARE(server.lines.count("XX0ABC-9>APRS,TCPIP*::DL1B     :two{2"), 4);
    }

    void repeatedMessagesAreFlagged()
    {
        AprsIsServer server;
        AprsClient client;
        logIn(client, server);
        QSignalSpy packets(&client, &AprsClient::packetReceived);
        const QByteArray line = "DL1B>APRS,TCPIP*::XX0ABC-9 :hello{5";
        for (const qint64 step : {0, 59000, 60000}) {
            now += step;
            server.send(line);
            QTRY_COMPARE(packets.size(), step == 0 ? 1 : step == 59000 ? 2 : 3);
        }
        const auto flag = [&packets](int i) { return packets.at(i).at(0).value<ParsedPacket>().duplicate; };
        QCOMPARE(QList<bool>({flag(0), flag(1), flag(2)}), QList<bool>({false, true, false}));
    }

    void secondQuickCloseNamesTheClash()
    {
        AprsIsServer server;
        server.setCloseAfterLogin(true);
        AprsClient client;
        QSignalSpy errors(&client, &AprsClient::errorReported);
        client.setServer(QStringLiteral("127.0.0.1"), server.port());
        client.setCallsign(QStringLiteral("xx0abc-9"));
        client.setTimersForTests(10, 20);
        client.start();
        QTRY_VERIFY(server.logins >= 2);
        QTRY_VERIFY(!errors.isEmpty());
        QVERIFY(errors.last().at(0).toString().startsWith(
            "server closes right after login — another station is logged in as XX0ABC-9"));
    }

    void beaconSkipsZeroAndSendsThePosition()
    {
        TempConfigHome home;
        AprsIsServer server;
        AprsClient client;
        logIn(client, server);
        LogCapture log;
        zl::Config::instance().setSection(QStringLiteral("aprs"),
                                          {{"beacon_enabled", true}, {"beacon_interval_s", 30}});
        AprsBeacon beacon(&client);
        beacon.setTimeUnitForTests(1);
        beacon.reload();
        QTRY_VERIFY(log.lines().contains("AprsBeacon: skip — lat/lon 0,0 (set in Settings → APRS)"));
        zl::Config::instance().setSection(
            QStringLiteral("aprs"),
            {{"beacon_enabled", true}, {"lat", 0.0001}, {"lon", 0.0}, {"symbol_table", "/"}, {"symbol_code", ">"}});
        QTRY_VERIFY(server.lines.contains("XX0ABC-9>APRS,TCPIP*:=0000.01N/00000.00E>"));
    }
};

QTEST_MAIN(TestAprs)
#include "tst_aprs.moc"
