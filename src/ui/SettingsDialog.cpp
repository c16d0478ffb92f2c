#include "ui/SettingsDialog.h"

#include "app/Config.h"
#include "ui/AllStarSettingsTab.h"
#include "ui/AmbeSettingsTab.h"
#include "ui/ApiSettingsTab.h"
#include "ui/AprsSettingsTab.h"
#include "ui/AudioChainTab.h"
#include "ui/AudioSettingsTab.h"
#include "ui/DmrSettingsTab.h"
#include "ui/EchoLinkSettingsTab.h"
#include "ui/GeneralSettingsTab.h"
#include "ui/HardwareSettingsTab.h"
#include "ui/M17SettingsTab.h"
#include "ui/ModeSettingsTab.h"
#include "ui/NxdnSettingsTab.h"
#include "ui/PocsagSettingsTab.h"
#include "ui/ScreenFit.h"
#include "ui/StyleSheet.h"
#include "ui/SvxLinkSettingsTab.h"
#include "ui/YsfSettingsTab.h"

#include <QCloseEvent>
#include <QDialogButtonBox>
#include <QLabel>
#include <QMessageBox>
#include <QPushButton>
#include <QScrollArea>
#include <QTabWidget>
#include <QVBoxLayout>

namespace {

const QString kTitle = QStringLiteral("zephyrlake · Settings");

// A tab whose settings come with a later version of the program.
QWidget* placeholder(const QString& what)
{
    auto* label = new QLabel(QStringLiteral("%1 settings are not in this version yet.").arg(what));
    label->setAlignment(Qt::AlignCenter);
    label->setWordWrap(true);
    return label;
}

// Modes that have only their servers from the server registry, and no client.
const QStringList kServerModes = {QStringLiteral("dstar"), QStringLiteral("p25")};

// The tab of a mode with settings of its own; null for the others.
QWidget* ownModeTab(const QString& key)
{
    if (key == QLatin1String("allstar"))
        return new AllStarSettingsTab;
    if (key == QLatin1String("aprs"))
        return new AprsSettingsTab;
    if (key == QLatin1String("echolink"))
        return new EchoLinkSettingsTab;
    if (key == QLatin1String("m17"))
        return new M17SettingsTab;
    if (key == QLatin1String("nxdn"))
        return new NxdnSettingsTab;
    if (key == QLatin1String("pocsag"))
        return new PocsagSettingsTab;
    if (key == QLatin1String("svxlink"))
        return new SvxLinkSettingsTab;
    if (key == QLatin1String("ysf"))
        return new YsfSettingsTab;
    return nullptr;
}

struct TabEntry {
    const char* title;
    const char* key;
};

// The tabs in their order, with the key that opens each.
constexpr TabEntry kTabs[] = {
    {"General", ""},          {"Audio", ""},          {"EQ / LADSPA", ""}, {"Hardware", ""},    {"AMBE", "ambe"},
    {"API", "api"},           {"AllStar", "allstar"}, {"APRS", "aprs"},    {"D-STAR", "dstar"}, {"DMR", "dmr"},
    {"Echolink", "echolink"}, {"M17", "m17"},         {"NXDN", "nxdn"},    {"P25", "p25"},      {"POCSAG", "pocsag"},
    {"SvxLink", "svxlink"},   {"YSF", "ysf"},
};

} // namespace

QPointer<SettingsDialog>& SettingsDialog::singleton()
{
    static QPointer<SettingsDialog> instance;
    return instance;
}

SettingsDialog* SettingsDialog::showSingleton(QWidget* parent)
{
    QPointer<SettingsDialog>& dialog = singleton();
    if (!dialog)
        dialog = new SettingsDialog(parent);
    dialog->show();
    dialog->raise();
    dialog->activateWindow();
    return dialog;
}

SettingsDialog* SettingsDialog::openOnTab(QWidget* parent, const QString& key, const QString& peerLabel)
{
    SettingsDialog* dialog = showSingleton(parent);
    for (int i = 0; i < int(dialog->pages.size()); ++i) {
        if (dialog->pages.at(i)->property("tabKey").toString() == key)
            dialog->tabs->setCurrentIndex(i);
    }
    if (auto* dmr = qobject_cast<DmrSettingsTab*>(dialog->pages.value(dialog->tabs->currentIndex()));
        dmr && !peerLabel.isEmpty())
        dmr->editPeer(peerLabel);
    return dialog;
}

SettingsDialog::SettingsDialog(QWidget* parent)
    : QDialog(parent), tabs(new QTabWidget), applyButton(new QPushButton(QStringLiteral("Apply")))
{
    setWindowTitle(kTitle);
    GeneralSettingsTab* general = nullptr;
    for (const TabEntry& entry : kTabs) {
        const QString title = QString::fromLatin1(entry.title);
        QWidget* tab = nullptr;
        if (title == QLatin1String("General")) {
            tab = general = new GeneralSettingsTab;
        } else if (title == QLatin1String("Audio")) {
            tab = new AudioSettingsTab;
        } else if (title == QLatin1String("EQ / LADSPA")) {
            tab = new AudioChainTab;
        } else if (title == QLatin1String("Hardware")) {
            tab = new HardwareSettingsTab;
        } else if (title == QLatin1String("AMBE")) {
            tab = new AmbeSettingsTab;
        } else if (title == QLatin1String("API")) {
            tab = new zl::ui::ApiSettingsTab;
        } else if (title == QLatin1String("DMR")) {
            auto* dmr = new DmrSettingsTab;
            dmr->setIdentitySource([general] { return general->identitiesOf(QStringLiteral("dmr")); });
            tab = dmr;
        } else if (QWidget* own = ownModeTab(QString::fromLatin1(entry.key))) {
            tab = own;
        } else if (const QString key = QString::fromLatin1(entry.key); kServerModes.contains(key)) {
            tab = new ModeSettingsTab(title, key, QStringLiteral("The %1 servers the %1 page offers.").arg(title));
        } else {
            tab = placeholder(title);
        }
        tab->setProperty("tabKey", QString::fromLatin1(entry.key));
        pages.append(tab);
        // A tab taller than a small screen scrolls instead of being squeezed.
        auto* scroll = new QScrollArea;
        scroll->setWidgetResizable(true);
        scroll->setFrameShape(QFrame::NoFrame);
        scroll->setWidget(tab);
        tabs->addTab(scroll, title);
        // A tab without the signal takes no part in dirty tracking.
        if (tab->metaObject()->indexOfSignal("dirtied()") >= 0)
            connect(tab, SIGNAL(dirtied()), this, SLOT(onTabDirtied()));
    }
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel);
    applyButton->setObjectName(QStringLiteral("applyButton"));
    buttons->addButton(applyButton, QDialogButtonBox::ApplyRole);
    connect(buttons, &QDialogButtonBox::accepted, this, &SettingsDialog::onOk);
    connect(buttons, &QDialogButtonBox::rejected, this, &SettingsDialog::onCancel);
    connect(applyButton, &QPushButton::clicked, this, &SettingsDialog::onApply);
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(tabs);
    layout->addWidget(buttons);

    setMinimumSize(zl::uiScale(500), zl::uiScale(440));
    if (!restoreGeometry(zl::Config::instance().windowGeometry(QStringLiteral("settings"))))
        resize(zl::uiScale(880), zl::uiScale(440));
    zl::ui::fitToScreen(this);
    setDirty(false);
}

void SettingsDialog::onTabDirtied()
{
    setDirty(true);
}

void SettingsDialog::setDirty(bool on)
{
    dirty = on;
    applyButton->setEnabled(on);
    setWindowTitle(on ? kTitle + QStringLiteral("  *") : kTitle);
}

void SettingsDialog::commitAll()
{
    // In tab order; each tab writes its sections and saves. One announcement for all of them.
    for (QWidget* tab : std::as_const(pages)) {
        if (tab->metaObject()->indexOfMethod("commit()") >= 0)
            QMetaObject::invokeMethod(tab, "commit", Qt::DirectConnection);
    }
    emit zl::Config::instance().configChanged();
    setDirty(false);
}

bool SettingsDialog::returnToListIfEditing()
{
    bool wasEditing = false;
    QWidget* tab = pages.value(tabs->currentIndex());
    if (!tab)
        return false;
    if (tab->metaObject()->indexOfMethod("returnToListIfEditing()") >= 0)
        QMetaObject::invokeMethod(tab, "returnToListIfEditing", Qt::DirectConnection, Q_RETURN_ARG(bool, wasEditing));
    return wasEditing;
}

void SettingsDialog::onApply()
{
    commitAll();
}

void SettingsDialog::onOk()
{
    commitAll();
    // OK on an open card saves it and goes back to the list: the user may want to add more.
    if (returnToListIfEditing())
        return;
    saveGeometryNow();
    hide();
}

void SettingsDialog::onCancel()
{
    if (!confirmClose())
        return;
    saveGeometryNow();
    hide();
}

bool SettingsDialog::confirmClose()
{
    if (!dirty)
        return true;
    const QMessageBox::StandardButton answer = QMessageBox::question(
        this, QStringLiteral("Unsaved changes"), QStringLiteral("You have unsaved changes. Save before closing?"),
        QMessageBox::Save | QMessageBox::Discard | QMessageBox::Cancel, QMessageBox::Save);
    if (answer == QMessageBox::Cancel)
        return false;
    if (answer == QMessageBox::Save)
        commitAll();
    else
        setDirty(false);
    return true;
}

void SettingsDialog::closeEvent(QCloseEvent* event)
{
    if (!confirmClose()) {
        event->ignore();
        return;
    }
    saveGeometryNow();
    QDialog::closeEvent(event);
}

void SettingsDialog::keyPressEvent(QKeyEvent* event)
{
    // Esc goes through the same question as Cancel.
    if (event->key() == Qt::Key_Escape) {
        onCancel();
        return;
    }
    QDialog::keyPressEvent(event);
}

void SettingsDialog::saveGeometryNow()
{
    zl::Config::instance().setWindowGeometry(QStringLiteral("settings"), saveGeometry());
}
