#pragma once

#include <QVariant>

// A show or hide request as the host exchanges it: the package is the bare flag.
struct stPtCloud_uiCmdPackage_showWindow {
    bool show = true;

    stPtCloud_uiCmdPackage_showWindow() = default;
    stPtCloud_uiCmdPackage_showWindow(const stPtCloud_uiCmdPackage_showWindow&) = default;
    stPtCloud_uiCmdPackage_showWindow(stPtCloud_uiCmdPackage_showWindow&&) = default;
    stPtCloud_uiCmdPackage_showWindow& operator=(const stPtCloud_uiCmdPackage_showWindow&) = default;
    stPtCloud_uiCmdPackage_showWindow& operator=(stPtCloud_uiCmdPackage_showWindow&&) = default;

    void toPackage(QVariant& out) const;
    void fromPackage(const QVariant& in);
};
