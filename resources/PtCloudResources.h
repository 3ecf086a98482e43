#pragma once

#include <QLocale>
#include <QString>

class QTranslator;

// The component's icons, panel backgrounds and translations, compiled into
// the resource library. A static library's resources are only linked in when
// something refers to them: every user calls initialize() before the first
// picture is needed.
class PtCloudResources {
public:
    // Registers the resources once; later calls do nothing.
    static void initialize();
    // Loads the component's texts for the locale ("ptcloud_zh_CN" for
    // Chinese); false when the component has no translation for it.
    static bool loadTranslation(QTranslator* translator, const QLocale& locale);
};
