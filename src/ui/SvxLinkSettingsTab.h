#pragma once

#include "ui/EntryListTab.h"

// The SvxLink reflectors, stored under their "host[:port]", with the login and talk groups of each.
class SvxLinkSettingsTab : public EntryListTab {
    Q_OBJECT

public:
    explicit SvxLinkSettingsTab(QWidget* parent = nullptr);

protected:
    QList<QJsonObject> readEntries(const QJsonObject& section) const override;
    void writeEntries(QJsonObject& section, const QList<QJsonObject>& entries) const override;
    QString entryText(const QJsonObject& entry) const override;
};
