#include "SectionViewWidget.h"

#include <QCoreApplication>

#include "SectionViewOsgWidget.h"
#include "ui_SectionViewWidget.h"

SectionViewWidget::SectionViewWidget(QWidget* parent)
    : MovableSubWidget(parent), ui(std::make_unique<Ui::section_view_widget>())
{
    ui->setupUi(this);
}

SectionViewWidget::~SectionViewWidget() = default;

SectionViewOsgWidget* SectionViewWidget::profileView() const { return ui->widget_section_view; }

void SectionViewWidget::setPointCount(int count)
{
    ui->label_points->setText(
        count < 0 ? QString() : QCoreApplication::translate("section_view_widget", "%n points", nullptr, count));
}
