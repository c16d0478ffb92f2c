#pragma once

#include <QString>

#include <functional>

class QFormLayout;
class QLineEdit;
class QSpinBox;

namespace zl::ui {

// What is wrong with a value that would certainly make the connection fail; empty if nothing.
using FieldRule = std::function<QString(const QString&)>;

QString checkCallsign(const QString& text);
QString checkDmrId(const QString& text);
QString checkNxdnId(const QString& text);
QString checkPort(const QString& text);
QString checkHost(const QString& text);

// The same rule for a field that may stay empty (empty: the program's default applies).
FieldRule unlessEmpty(const FieldRule& rule);

// A short warning under the field, kept up to date as the user types. Saving stays allowed.
void addFieldCheck(QLineEdit* field, QFormLayout* form, const FieldRule& rule);
void addFieldCheck(QSpinBox* field, QFormLayout* form, const FieldRule& rule);

} // namespace zl::ui
