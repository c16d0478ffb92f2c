#pragma once

#include <QList>
#include <QString>

#include <optional>

namespace zl::svx {

struct SrvRecord {
    QString target;
    quint16 port = 0;
    quint16 priority = 0;
    quint16 weight = 0;
};

// The one record a node connects to: lowest priority first, then the highest weight.
std::optional<SrvRecord> pickSrvRecord(QList<SrvRecord> records);

} // namespace zl::svx
