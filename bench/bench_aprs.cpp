// Parse rate of APRS-IS lines in the mix of a full feed: mostly positions (plain, compressed,
// Mic-E), then status, messages and other types. An unfiltered feed brings about 300 lines/s.
#include "aprs/AprsPacket.h"

#include <benchmark/benchmark.h>

#include <QList>

namespace {

const QList<QByteArray> kFeed{
    "DL1B-9>APRS,TCPIP*,qAC,T2LEIPZIG:=5130.12N/01223.45E>Mobile on the A9",
    "OH7LZB-2>TQ4W2V,WIDE2-1,qAo,OH7LZB:`c51!f?>/]\"3x}=",
    "W1AW>APRS,TCPIP*,qAC,T2BOSTON:!/5L!!<*e7>7P[ PHG5130",
    "K0ABC-9>S32U6T,WIDE1-1,qAR,K0XYZ:`(_fn\"Oj/Moving",
    "G4XYZ>APDR16,TCPIP*,qAC,T2UK:/092345z5130.00N/00007.50W_.../...g...t050r000p000",
    "SM0A-10>APRX29,TCPIP*,qAC,T2SWEDEN:>iGate on 144.800",
    "N0CALL>APRS,TCPIP*,qAC,T2TEST::XX0ABC-7 :hello there{12",
    "DL1B>APRS,TCPIP*,qAC,T2TEST::N0CALL   :ack12",
    "EA1ABC>APRS,TCPIP*,qAC,T2SPAIN:;LEADER   *092345z4903.50N/07201.75W>088/036",
    "VK2ABC>APRS,TCPIP*,qAC,T2AUS:T#005,199,000,255,073,123,01101001",
};

void parseFeed(benchmark::State& state)
{
    qsizetype i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(zl::aprs::parseLine(kFeed.at(i)));
        i = (i + 1) % kFeed.size();
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(parseFeed);

} // namespace
