#pragma once

#include <QByteArray>
#include <QByteArrayView>
#include <QHash>
#include <QString>

namespace zl {

// The subscribers of one network: id to callsign and name. A full DMR list holds some 300 000
// users, looked up for every call heard; the strings of all entries therefore live in one UTF-8
// buffer and the hash keeps only where each entry's text starts, some 40 bytes a user where
// two QStrings an entry would take four times that.
class UserTable {
public:
    qsizetype size() const { return index.size(); }
    bool isEmpty() const { return index.isEmpty(); }
    // Inserts or replaces; the text is stored as given.
    void insert(int id, QByteArrayView callsign, QByteArrayView name);
    QString callsignOf(int id) const;
    QString nameOf(int id) const;

    // The published CSV: id, callsign, first name, further columns ignored; the header and
    // lines without a numeric id are skipped, callsigns are made upper case. Quotes are not
    // honoured: the list has none, and a comma always ends a column.
    static UserTable fromCsv(QByteArrayView csv);
    // The cache file: id TAB callsign TAB name per line, taken as it stands. `expected` is the
    // room reserved up front, so that a full list does not rehash on its way in.
    static UserTable fromTsv(QByteArrayView tsv, qsizetype expected = 0);
    QByteArray toTsv() const;

private:
    struct Slot {
        quint32 offset;
        quint16 callsignLength;
        quint16 nameLength;
    };

    QHash<int, Slot> index;
    QByteArray text;
};

} // namespace zl
