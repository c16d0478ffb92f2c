#pragma once

#include <QLayout>
#include <QList>

namespace zl::ui {

// Lays its items out left to right and starts a new line when the width is used up,
// so that the mode cards wrap on narrow windows.
class FlowLayout : public QLayout {
public:
    explicit FlowLayout(int spacing, QWidget* parent = nullptr);
    ~FlowLayout() override;

    void addItem(QLayoutItem* item) override;
    int count() const override { return int(items.size()); }
    QLayoutItem* itemAt(int index) const override { return items.value(index); }
    QLayoutItem* takeAt(int index) override;
    Qt::Orientations expandingDirections() const override { return {}; }
    bool hasHeightForWidth() const override { return true; }
    int heightForWidth(int width) const override { return arrange(QRect(0, 0, width, 0), false); }
    QSize sizeHint() const override { return minimumSize(); }
    QSize minimumSize() const override;
    void setGeometry(const QRect& rect) override;

private:
    // Places the items in rect (or only measures); the height used.
    int arrange(const QRect& rect, bool place) const;

    QList<QLayoutItem*> items;
};

} // namespace zl::ui
