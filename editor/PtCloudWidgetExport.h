#pragma once

#include <QtGlobal>

// PtCloudWidget is what the component's shared library gives a host; the
// library's own sources are built with PTCLOUDWIDGET_LIBRARY.
#if defined(PTCLOUDWIDGET_LIBRARY)
#define PTCLOUDWIDGET_EXPORT Q_DECL_EXPORT
#else
#define PTCLOUDWIDGET_EXPORT Q_DECL_IMPORT
#endif
