// The user list at the scale of the published DMR list (300 000 users): parse of the CSV as
// downloaded, load of the cache file at start-up, lookup per id, and resident memory per user.
#include "db/UserDb.h"
#include "db/UserTable.h"

#include <QCoreApplication>
#include <QEventLoop>
#include <QFile>
#include <QRandomGenerator>
#include <QTemporaryDir>

#include <benchmark/benchmark.h>

#include <malloc.h>

namespace {

constexpr int kUsers = 300000;

// Lines shaped as the published ones: a 7-digit id, a callsign, a first name, and the columns
// that the table does not keep.
QByteArray csv()
{
    QByteArray out = "RADIO_ID,CALLSIGN,FIRST_NAME,LAST_NAME,CITY,STATE,COUNTRY\n";
    for (int i = 0; i < kUsers; ++i)
        out += QByteArray::number(1000000 + i * 7) + ",dl" + QByteArray::number(i % 10) +
               "abc,Firstname,Lastname,City," + "State,Germany\n";
    return out;
}

// Heap in use: every byte of the table is written when it is built, so this is what it keeps
// resident. (The process's resident size would also count pages freed earlier and kept by
// the allocator.)
size_t heapInUse()
{
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

void parseCsv(benchmark::State& state)
{
    const QByteArray body = csv();
    for (auto _ : state)
        benchmark::DoNotOptimize(zl::UserTable::fromCsv(body).size());
    state.counters["users"] = kUsers;
}
BENCHMARK(parseCsv)->Unit(benchmark::kMillisecond);

// What the window does at start-up: UserDb reading both cache files, until the table is in use.
void loadAtStart(benchmark::State& state)
{
    QTemporaryDir cache;
    qputenv("XDG_CACHE_HOME", cache.path().toLocal8Bit());
    QFile file(zl::UserDb::dmrPath());
    if (!file.open(QIODevice::WriteOnly))
        return state.SkipWithError("cannot write the cache file");
    file.write(zl::UserTable::fromCsv(csv()).toTsv());
    file.close();
    for (auto _ : state) {
        zl::UserDb db;
        db.loadFromDisk();
        // Read on a worker; the table is in use once the window's loop has published it.
        while (db.userCount() == 0)
            QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    }
}
BENCHMARK(loadAtStart)->Unit(benchmark::kMillisecond);

void lookup(benchmark::State& state)
{
    const zl::UserTable table = zl::UserTable::fromCsv(csv());
    QRandomGenerator random(1);
    std::vector<int> ids(4096);
    for (int& id : ids)
        id = 1000000 + int(random.bounded(kUsers)) * 7;
    size_t i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(table.callsignOf(ids[i++ & 4095]));
    }
}
BENCHMARK(lookup);

// Resident memory of a loaded table, divided by its users; reported as a counter.
void memoryPerUser(benchmark::State& state)
{
    const QByteArray tsv = zl::UserTable::fromCsv(csv()).toTsv();
    for (auto _ : state) {
        const size_t before = heapInUse();
        auto* table = new zl::UserTable(zl::UserTable::fromTsv(tsv, 1 << 20));
        state.counters["bytes_per_user"] = double(heapInUse() - before) / double(table->size());
        delete table;
    }
}
BENCHMARK(memoryPerUser)->Iterations(1)->Unit(benchmark::kMillisecond);

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication::setOrganizationName(QStringLiteral("xx0abc"));
    QCoreApplication::setApplicationName(QStringLiteral("zephyrlake"));
    QCoreApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
