#include "pagelayout.h"

#include <QGroupBox>
#include <QHeaderView>
#include <QTableView>
#include <QVBoxLayout>

namespace {

constexpr int pageSpacing = 12;

} // namespace

QGroupBox *createTitledArea(const QString &title, QWidget *content)
{
    auto *area = new QGroupBox(title);
    auto *layout = new QVBoxLayout(area);
    layout->addWidget(content);
    return area;
}

void layOutPage(QWidget *page, QWidget *form, QWidget *results)
{
    auto *layout = new QHBoxLayout(page);
    layout->setContentsMargins(pageMargin, pageMargin, pageMargin, pageMargin);
    layout->setSpacing(pageSpacing);
    layout->addWidget(form, 0);
    layout->addWidget(results, 1);
}

void stretchLastColumn(QTableView *table, int minimum)
{
    QHeaderView *header = table->horizontalHeader();
    header->setStretchLastSection(false);
    header->resizeSection(header->count() - 1, minimum);
    header->setStretchLastSection(true); // never below the width from which it begins
}
