#include "ui/LastHeardWindow.h"

#include "app/Config.h"
#include "ui/ScreenFit.h"
#include "ui/StyleSheet.h"

#include <QCloseEvent>
#include <QComboBox>
#include <QDateTime>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QTableWidget>
#include <QTimer>
#include <QVBoxLayout>

namespace {

constexpr int kArrivedRole = Qt::UserRole + 1;
constexpr int kModeColumn = 3;
constexpr qint64 kKeepSeconds = 24 * 3600;
const QString kAllModes = QStringLiteral("(all)");
const QString kName = QStringLiteral("lastheard");

} // namespace

QPointer<LastHeardWindow>& LastHeardWindow::guarded()
{
    static QPointer<LastHeardWindow> window;
    return window;
}

LastHeardWindow* LastHeardWindow::instance(QWidget* parent)
{
    QPointer<LastHeardWindow>& window = guarded();
    if (!window)
        window = new LastHeardWindow(parent);
    window->show();
    window->raise();
    window->activateWindow();
    return window;
}

LastHeardWindow::LastHeardWindow(QWidget* parent)
    : QMainWindow(parent, Qt::Window), table(new QTableWidget(0, 9)), search(new QLineEdit), modeFilter(new QComboBox),
      pruneTimer(new QTimer(this))
{
    setAttribute(Qt::WA_DeleteOnClose);
    setWindowTitle(QStringLiteral("zephyrlake · Last heard"));

    auto* central = new QWidget;
    auto* layout = new QVBoxLayout(central);
    auto* filters = new QHBoxLayout;
    search->setObjectName(QStringLiteral("lastHeardSearch"));
    search->setClearButtonEnabled(true);
    search->setPlaceholderText(QStringLiteral("callsign, dest, body…"));
    modeFilter->setObjectName(QStringLiteral("lastHeardMode"));
    modeFilter->addItem(kAllModes, QString());
    filters->addWidget(new QLabel(QStringLiteral("Search")));
    filters->addWidget(search, 1);
    filters->addWidget(new QLabel(QStringLiteral("Mode")));
    filters->addWidget(modeFilter);
    layout->addLayout(filters);

    table->setObjectName(QStringLiteral("lastHeardLarge"));
    table->setHorizontalHeaderLabels({QStringLiteral("TIME"), QStringLiteral("CALLSIGN"), QStringLiteral("COUNTRY"),
                                      QStringLiteral("MODE"), QStringLiteral("SERVER"), QStringLiteral("TARGET"),
                                      QStringLiteral("DUR"), QStringLiteral("LOSS %"), QStringLiteral("RSSI")});
    table->setEditTriggers(QAbstractItemView::NoEditTriggers);
    table->setSelectionBehavior(QAbstractItemView::SelectRows);
    table->setAlternatingRowColors(true);
    table->setShowGrid(false);
    table->verticalHeader()->setVisible(false);
    table->horizontalHeader()->setSectionResizeMode(QHeaderView::ResizeToContents);
    table->horizontalHeader()->setStretchLastSection(true);
    layout->addWidget(table);
    setCentralWidget(central);

    connect(search, &QLineEdit::textChanged, this, &LastHeardWindow::applyFilter);
    connect(modeFilter, &QComboBox::currentTextChanged, this, &LastHeardWindow::applyFilter);
    pruneTimer->setInterval(60000);
    connect(pruneTimer, &QTimer::timeout, this, &LastHeardWindow::pruneOld);
    pruneTimer->start();

    const zl::Config& config = zl::Config::instance();
    const QByteArray geometry = config.windowGeometry(kName);
    if (geometry.isEmpty() || !restoreGeometry(geometry))
        resize(zl::uiScale(900), zl::uiScale(560));
    if (const QByteArray state = config.windowState(kName); !state.isEmpty())
        restoreState(state);
    zl::ui::fitToScreen(this);
}

void LastHeardWindow::appendRow(const QString& time, const QString& call, const QString& country, const QString& mode,
                                const QString& server, const QString& target, const QString& duration,
                                const QString& lossPct, const QString& rssi)
{
    const QStringList cells = {time, call, country, mode, server, target, duration, lossPct, rssi};
    table->insertRow(0);
    for (int column = 0; column < int(cells.size()); ++column)
        table->setItem(0, column, new QTableWidgetItem(cells.at(column)));
    table->item(0, 0)->setData(kArrivedRole, QDateTime::currentDateTime());
    table->scrollToTop();
    // The filter offers only modes that were heard; adding one keeps the current choice.
    if (modeFilter->findData(mode) < 0)
        modeFilter->addItem(mode, mode);
    pruneOld();
    applyFilter();
}

void LastHeardWindow::pruneOld()
{
    const QDateTime cutoff = QDateTime::currentDateTime().addSecs(-kKeepSeconds);
    for (int row = table->rowCount() - 1; row >= 0; --row) {
        const QDateTime arrived = table->item(row, 0)->data(kArrivedRole).toDateTime();
        if (arrived.isValid() && arrived < cutoff)
            table->removeRow(row);
    }
}

void LastHeardWindow::applyFilter()
{
    const QString text = search->text().trimmed();
    const QString mode = modeFilter->currentText();
    for (int row = 0; row < table->rowCount(); ++row) {
        bool visible = true;
        if (!text.isEmpty()) {
            visible = false;
            for (int column = 0; column < table->columnCount() && !visible; ++column) {
                const QTableWidgetItem* item = table->item(row, column);
                visible = item && item->text().contains(text, Qt::CaseInsensitive);
            }
        }
        if (visible && mode != kAllModes) {
            const QTableWidgetItem* item = table->item(row, kModeColumn);
            visible = item && item->text() == mode;
        }
        table->setRowHidden(row, !visible);
    }
}

void LastHeardWindow::closeEvent(QCloseEvent* event)
{
    zl::Config& config = zl::Config::instance();
    config.setWindowGeometry(kName, saveGeometry());
    config.setWindowState(kName, saveState());
    QMainWindow::closeEvent(event);
}
