#include "PtCloudResources.h"

#include <QTranslator>
#include <mutex>

// Outside any namespace, as Q_INIT_RESOURCE requires.
static void registerPtCloudResources()
{
    Q_INIT_RESOURCE(ptcloud);
}

void PtCloudResources::initialize()
{
    static std::once_flag once;
    std::call_once(once, registerPtCloudResources);
}

bool PtCloudResources::loadTranslation(QTranslator* translator, const QLocale& locale)
{
    initialize();
    return translator->load(locale, QStringLiteral("ptcloud"), QStringLiteral("_"), QStringLiteral(":/i18n"));
}
