#include "stPtCloud_uiCmdPackage_showWindow.h"

void stPtCloud_uiCmdPackage_showWindow::toPackage(QVariant& out) const { out = QVariant(show); }

void stPtCloud_uiCmdPackage_showWindow::fromPackage(const QVariant& in) { show = in.toBool(); }
