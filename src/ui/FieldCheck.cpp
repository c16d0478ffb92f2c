#include "ui/FieldCheck.h"

#include <QFormLayout>
#include <QLabel>
#include <QLineEdit>
#include <QRegularExpression>
#include <QSpinBox>

namespace zl::ui {

QString checkCallsign(const QString& text)
{
    static const QRegularExpression form(QStringLiteral("^[A-Z0-9]{3,8}([-/][A-Z0-9]{1,4})?$"));
    const QString value = text.trimmed().toUpper();
    if (value.isEmpty())
        return QStringLiteral("A callsign is needed.");
    if (!form.match(value).hasMatch())
        return QStringLiteral("This does not look like a callsign.");
    return {};
}

QString checkDmrId(const QString& text)
{
    bool ok = false;
    const qulonglong id = text.trimmed().toULongLong(&ok);
    // Seven digits; the nine-digit form with an ESSID is entered in two fields.
    if (!ok || id < 1000000 || id > 9999999)
        return QStringLiteral("A DMR-ID has seven digits.");
    return {};
}

QString checkNxdnId(const QString& text)
{
    bool ok = false;
    const uint id = text.trimmed().toUInt(&ok);
    if (!ok || id < 1 || id > 65519)
        return QStringLiteral("An NXDN-ID is a number from 1 to 65519.");
    return {};
}

QString checkPort(const QString& text)
{
    bool ok = false;
    const uint port = text.trimmed().toUInt(&ok);
    if (!ok || port < 1 || port > 65535)
        return QStringLiteral("A port is a number from 1 to 65535.");
    return {};
}

QString checkHost(const QString& text)
{
    const QString value = text.trimmed();
    if (value.isEmpty())
        return QStringLiteral("A host name or address is needed.");
    if (value.contains(QRegularExpression(QStringLiteral("\\s"))))
        return QStringLiteral("A host name has no spaces.");
    return {};
}

FieldRule unlessEmpty(const FieldRule& rule)
{
    return [rule](const QString& text) { return text.trimmed().isEmpty() ? QString() : rule(text); };
}

namespace {

template <typename Field, typename Signal>
void attachWarning(Field* field, QFormLayout* form, const FieldRule& rule, Signal changed)
{
    auto* warning = new QLabel;
    warning->setObjectName(field->objectName() + QStringLiteral("Warning"));
    warning->setStyleSheet(QStringLiteral("color:#e0b020;"));
    form->addRow(QString(), warning);
    const auto update = [field, warning, rule] {
        const QString problem = rule(field->text());
        warning->setText(problem);
        warning->setVisible(!problem.isEmpty());
    };
    QObject::connect(field, changed, warning, update);
    update();
}

} // namespace

void addFieldCheck(QLineEdit* field, QFormLayout* form, const FieldRule& rule)
{
    attachWarning(field, form, rule, &QLineEdit::textChanged);
}

void addFieldCheck(QSpinBox* field, QFormLayout* form, const FieldRule& rule)
{
    attachWarning(field, form, rule, &QSpinBox::textChanged);
}

} // namespace zl::ui
