#pragma once

#include <memory>

#include "MovableSubWidget.h"

class SectionViewOsgWidget;
namespace Ui {
class section_view_widget;
}

// The floating "Section" window over the 3D view that holds the profile
// view and says how many points the section holds.
class SectionViewWidget : public MovableSubWidget {
    Q_OBJECT
public:
    explicit SectionViewWidget(QWidget* parent);
    ~SectionViewWidget() override;

    SectionViewOsgWidget* profileView() const;
    // Shows the number of points in the section; negative clears it.
    void setPointCount(int count);

private:
    std::unique_ptr<Ui::section_view_widget> ui;
};
