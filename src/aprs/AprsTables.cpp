#include "aprs/AprsTables.h"

namespace zl::aprs {

QList<AprsChoice> ssidChoices()
{
    return {
        {QString(), QStringLiteral("none (fixed station)")},
        {QStringLiteral("1"), QStringLiteral("Generic additional station / digi / mobile / wx")},
        {QStringLiteral("2"), QStringLiteral("Generic additional station")},
        {QStringLiteral("3"), QStringLiteral("Generic additional station")},
        {QStringLiteral("4"), QStringLiteral("Generic additional station")},
        {QStringLiteral("5"), QStringLiteral("Other networks (D-STAR, iPhone, Android)")},
        {QStringLiteral("6"), QStringLiteral("Special activity, satellite ops, camping")},
        {QStringLiteral("7"), QStringLiteral("Walkie talkie / HT")},
        {QStringLiteral("8"), QStringLiteral("Boat, sailboat, RV, second mobile")},
        {QStringLiteral("9"), QStringLiteral("Primary mobile")},
        {QStringLiteral("10"), QStringLiteral("Internet, iGate, EchoLink, Winlink")},
        {QStringLiteral("11"), QStringLiteral("Balloon, aircraft, spacecraft")},
        {QStringLiteral("12"), QStringLiteral("APRStt, DTMF, RFID, one-way tracker")},
        {QStringLiteral("13"), QStringLiteral("Weather station")},
        {QStringLiteral("14"), QStringLiteral("Trucker / full-time driver")},
        {QStringLiteral("15"), QStringLiteral("Generic additional station")},
    };
}

QList<AprsChoice> symbolChoices()
{
    return {
        {QStringLiteral("/-"), QStringLiteral("House")},
        {QStringLiteral("/>"), QStringLiteral("Car")},
        {QStringLiteral("/["), QStringLiteral("Person / HT")},
        {QStringLiteral("/k"), QStringLiteral("Truck")},
        {QStringLiteral("/v"), QStringLiteral("Van")},
        {QStringLiteral("/j"), QStringLiteral("Jeep")},
        {QStringLiteral("/b"), QStringLiteral("Bicycle")},
        {QStringLiteral("/R"), QStringLiteral("RV / camper")},
        {QStringLiteral("/Y"), QStringLiteral("Yacht / sailboat")},
        {QStringLiteral("/s"), QStringLiteral("Ship / power boat")},
        {QStringLiteral("/^"), QStringLiteral("Aircraft")},
        {QStringLiteral("/O"), QStringLiteral("Balloon")},
        {QStringLiteral("/_"), QStringLiteral("Weather station")},
        {QStringLiteral("/&"), QStringLiteral("iGate")},
        {QStringLiteral("/#"), QStringLiteral("Digipeater")},
        {QStringLiteral("/r"), QStringLiteral("Repeater")},
        {QStringLiteral("/y"), QStringLiteral("Yagi / home antenna")},
        {QStringLiteral("/a"), QStringLiteral("Ambulance")},
        {QStringLiteral("/f"), QStringLiteral("Fire truck")},
        {QStringLiteral("/p"), QStringLiteral("Dog / rover")},
        {QStringLiteral("/."), QStringLiteral("X / unknown")},
    };
}

} // namespace zl::aprs
