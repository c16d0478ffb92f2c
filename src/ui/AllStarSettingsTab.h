#pragma once

#include "ui/EntryListTab.h"

// The AllStar nodes the AllStar page links to, each over IAX2 with its own login.
class AllStarSettingsTab : public EntryListTab {
    Q_OBJECT

public:
    explicit AllStarSettingsTab(QWidget* parent = nullptr);

protected:
    QList<QJsonObject> readEntries(const QJsonObject& section) const override;
    void writeEntries(QJsonObject& section, const QList<QJsonObject>& entries) const override;
    QString entryText(const QJsonObject& entry) const override;
};
