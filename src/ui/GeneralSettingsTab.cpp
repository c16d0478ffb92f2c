#include "ui/GeneralSettingsTab.h"

#include "app/Config.h"
#include "ui/BaseModePage.h"
#include "ui/IdentityEditorDialog.h"

#include <QButtonGroup>
#include <QCheckBox>
#include <QComboBox>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QJsonObject>
#include <QKeyEvent>
#include <QKeySequence>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMessageBox>
#include <QPushButton>
#include <QRadioButton>
#include <QVBoxLayout>

namespace {

QJsonObject general()
{
    return zl::Config::instance().section(QStringLiteral("general"));
}

} // namespace

GeneralSettingsTab::GeneralSettingsTab(QWidget* parent)
    : QWidget(parent), pttKeyButton(new QPushButton), identityMode(new QComboBox), identityList(new QListWidget),
      defaultMode(new QComboBox), logEnabled(new QCheckBox(QStringLiteral("Write a log file"))), logDir(new QLineEdit)
{
    auto* layout = new QVBoxLayout(this);

    auto* ptt = new QGroupBox(QStringLiteral("Push-to-talk"));
    auto* pttLayout = new QVBoxLayout(ptt);
    auto* keyLine = new QHBoxLayout;
    pttKeyButton->setObjectName(QStringLiteral("pttKeyButton"));
    pttKeyButton->installEventFilter(this);
    auto* clear = new QPushButton(QStringLiteral("Clear"));
    keyLine->addWidget(pttKeyButton);
    keyLine->addWidget(clear);
    keyLine->addStretch();
    pttLayout->addLayout(keyLine);
    connect(pttKeyButton, &QPushButton::clicked, this, [this] {
        capturingKey = true;
        pttKeyButton->setText(QStringLiteral("Press a key... (Esc cancel)"));
        pttKeyButton->setFocus();
    });
    connect(clear, &QPushButton::clicked, this, [this] {
        capturingKey = false;
        storePtt(QStringLiteral("ptt_key"), 0);
        showPttKey();
    });
    for (const auto& [key, holdText, toggleText] : {std::tuple{"ptt_kbd_hold", "Hold to talk", "Click to toggle"},
                                                    std::tuple{"ptt_mouse_hold", "Hold to talk", "Click to toggle"}}) {
        const QString name = QString::fromLatin1(key);
        auto* line = new QHBoxLayout;
        auto* hold = new QRadioButton(QString::fromLatin1(holdText));
        auto* toggle = new QRadioButton(QString::fromLatin1(toggleText));
        hold->setObjectName(name + QStringLiteral("_hold"));
        auto* group = new QButtonGroup(this);
        group->addButton(hold);
        group->addButton(toggle);
        const bool holdNow = general().value(name).toBool(name == QLatin1String("ptt_kbd_hold"));
        (holdNow ? hold : toggle)->setChecked(true);
        line->addWidget(
            new QLabel(name == QLatin1String("ptt_kbd_hold") ? QStringLiteral("Keyboard:") : QStringLiteral("Mouse:")));
        line->addWidget(hold);
        line->addWidget(toggle);
        line->addStretch();
        pttLayout->addLayout(line);
        connect(hold, &QRadioButton::toggled, this, [this, name](bool on) { storePtt(name, on); });
    }
    layout->addWidget(ptt);
    showPttKey();

    auto* ids = new QGroupBox(QStringLiteral("Identities"));
    auto* idLayout = new QVBoxLayout(ids);
    identityMode->setObjectName(QStringLiteral("identityMode"));
    for (const QString& mode : zl::allModeKeys())
        identityMode->addItem(zl::modeHeading(mode), mode);
    identityList->setObjectName(QStringLiteral("identityList"));
    idLayout->addWidget(identityMode);
    idLayout->addWidget(identityList);
    auto* buttons = new QHBoxLayout;
    for (const char* text : {"Add…", "Edit…", "Remove"}) {
        auto* button = new QPushButton(QString::fromUtf8(text));
        button->setObjectName(QStringLiteral("identity%1").arg(QString::fromUtf8(text).remove(QStringLiteral("…"))));
        buttons->addWidget(button);
        connect(button, &QPushButton::clicked, this, [this, text] {
            const QString mode = currentMode();
            if (qstrcmp(text, "Remove") == 0)
                removeIdentity(mode);
            else if (qstrcmp(text, "Add…") == 0)
                addIdentity(mode);
            else
                editIdentity(mode);
        });
    }
    buttons->addStretch();
    idLayout->addLayout(buttons);
    layout->addWidget(ids);

    auto* startLine = new QHBoxLayout;
    defaultMode->setObjectName(QStringLiteral("defaultMode"));
    defaultMode->addItems(BaseModePage::modeNames());
    defaultMode->setCurrentText(zl::Config::instance().defaultMode());
    startLine->addWidget(new QLabel(QStringLiteral("Page shown at start:")));
    startLine->addWidget(defaultMode);
    startLine->addStretch();
    layout->addLayout(startLine);
    connect(defaultMode, &QComboBox::currentTextChanged, this, &GeneralSettingsTab::onDefaultModeChanged);

    auto* log = new QGroupBox(QStringLiteral("Log (from the next start)"));
    auto* logLayout = new QHBoxLayout(log);
    logEnabled->setObjectName(QStringLiteral("logEnabled"));
    logEnabled->setChecked(general().value(QStringLiteral("log_enabled")).toBool(true));
    logDir->setObjectName(QStringLiteral("logDir"));
    logDir->setPlaceholderText(QStringLiteral("folder (empty = the program's log folder)"));
    logDir->setText(general().value(QStringLiteral("log_dir")).toString());
    logLayout->addWidget(logEnabled);
    logLayout->addWidget(logDir, 1);
    layout->addWidget(log);
    connect(logEnabled, &QCheckBox::toggled, this, &GeneralSettingsTab::dirtied);
    connect(logDir, &QLineEdit::textEdited, this, &GeneralSettingsTab::dirtied);
    layout->addStretch();
    connect(identityMode, &QComboBox::currentIndexChanged, this, &GeneralSettingsTab::refreshIdentities);
    refreshIdentities();
}

QList<zl::Identity> GeneralSettingsTab::identitiesOf(const QString& modeKey) const
{
    return edited.contains(modeKey) ? edited.value(modeKey) : zl::identities(modeKey);
}

QString GeneralSettingsTab::currentMode() const
{
    return identityMode->currentData().toString();
}

void GeneralSettingsTab::storePtt(const QString& key, const QJsonValue& value)
{
    // Push-to-talk works at once, without Apply.
    zl::Config& config = zl::Config::instance();
    QJsonObject section = general();
    section.insert(key, value);
    config.setSection(QStringLiteral("general"), section);
    config.save();
}

void GeneralSettingsTab::showPttKey()
{
    const int key = general().value(QStringLiteral("ptt_key")).toInt(0);
    pttKeyButton->setText(key == 0 ? QStringLiteral("(None)") : QKeySequence(key).toString());
}

bool GeneralSettingsTab::eventFilter(QObject* watched, QEvent* event)
{
    if (watched != pttKeyButton || !capturingKey || event->type() != QEvent::KeyPress)
        return QWidget::eventFilter(watched, event);
    const int key = static_cast<QKeyEvent*>(event)->key();
    capturingKey = false;
    // Esc cancels and Backspace clears: neither can be the PTT key.
    if (key == Qt::Key_Backspace)
        storePtt(QStringLiteral("ptt_key"), 0);
    else if (key != Qt::Key_Escape)
        storePtt(QStringLiteral("ptt_key"), key);
    showPttKey();
    return true;
}

void GeneralSettingsTab::refreshIdentities()
{
    const QString mode = currentMode();
    identityList->clear();
    const QList<zl::Identity> list = identitiesOf(mode);
    for (const zl::Identity& each : list)
        identityList->addItem(zl::identityDisplayText(each));
}

void GeneralSettingsTab::addIdentity(const QString& modeKey)
{
    IdentityEditorDialog editor(modeKey, {}, this);
    if (editor.exec() != QDialog::Accepted)
        return;
    QList<zl::Identity> list = identitiesOf(modeKey);
    list.append(editor.identity());
    edited.insert(modeKey, list);
    refreshIdentities();
    emit dirtied();
}

void GeneralSettingsTab::editIdentity(const QString& modeKey)
{
    QList<zl::Identity> list = identitiesOf(modeKey);
    const int row = identityList->currentRow();
    if (row < 0 || row >= list.size())
        return;
    IdentityEditorDialog editor(modeKey, list.at(row), this);
    if (editor.exec() != QDialog::Accepted)
        return;
    list[row] = editor.identity();
    edited.insert(modeKey, list);
    refreshIdentities();
    emit dirtied();
}

void GeneralSettingsTab::removeIdentity(const QString& modeKey)
{
    QList<zl::Identity> list = identitiesOf(modeKey);
    const int row = identityList->currentRow();
    if (row < 0 || row >= list.size())
        return;
    const auto answer = QMessageBox::question(
        this, QStringLiteral("Remove identity"),
        QStringLiteral("Remove identity \"%1\" from %2?").arg(list.at(row).label, zl::modeTitle(modeKey)));
    if (answer != QMessageBox::Yes)
        return;
    list.removeAt(row);
    edited.insert(modeKey, list);
    refreshIdentities();
    emit dirtied();
}

void GeneralSettingsTab::onDefaultModeChanged(const QString&)
{
    emit dirtied();
}

void GeneralSettingsTab::commit()
{
    if (defaultMode->currentText() != zl::Config::instance().defaultMode())
        zl::Config::instance().setDefaultMode(defaultMode->currentText());
    for (auto it = edited.cbegin(); it != edited.cend(); ++it)
        zl::setIdentities(it.key(), it.value());
    edited.clear();
    QJsonObject section = general();
    const bool enabled = logEnabled->isChecked();
    const QString dir = logDir->text().trimmed();
    if (section.value(QStringLiteral("log_enabled")).toBool(true) != enabled ||
        section.value(QStringLiteral("log_dir")).toString() != dir) {
        section.insert(QStringLiteral("log_enabled"), enabled);
        section.insert(QStringLiteral("log_dir"), dir);
        zl::Config::instance().setSection(QStringLiteral("general"), section);
    }
    zl::Config::instance().save();
}
