# Shared build settings and helpers.

# Warnings for our own targets only; system headers stay quiet.
function(ptcloud_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra)
endfunction()

# Precompiled headers for the heavy third-party headers. One PCH per target:
# cheap to share with REUSE_FROM only among targets with identical flags.
function(ptcloud_pch_qt target)
  target_precompile_headers(${target} PRIVATE
    <QtCore/QObject> <QtCore/QString> <QtCore/QMap> <QtCore/QVariant>
    <QtCore/QList> <QtCore/QFile> <QtCore/QDir> <QtCore/QJsonObject>
    <vector> <memory> <algorithm> <cstdint>)
endfunction()

function(ptcloud_pch_gui target)
  target_precompile_headers(${target} PRIVATE
    <QtCore/QObject> <QtCore/QString> <QtCore/QMap> <QtCore/QVariant>
    <QtWidgets/QWidget> <QtWidgets/QDialog> <QtWidgets/QOpenGLWidget>
    <osg/Geode> <osg/Geometry> <osg/Group> <osgViewer/Viewer> <osgText/Text>
    <vector> <memory> <algorithm>)
endfunction()

# ptcloud_add_test(NAME name SOURCES ... LIBS ... [GL] [TIMEOUT s])
# GL tests get the label "gl" and run under xvfb-run from scripts/test.sh;
# the others run with the offscreen platform.
function(ptcloud_add_test)
  cmake_parse_arguments(T "GL" "NAME;TIMEOUT" "SOURCES;LIBS" ${ARGN})
  add_executable(${T_NAME} ${T_SOURCES})
  target_link_libraries(${T_NAME} PRIVATE Qt5::Test ${T_LIBS})
  ptcloud_warnings(${T_NAME})
  target_compile_definitions(${T_NAME} PRIVATE
    PTCLOUD_SHARED_DATA_DIR="${PROJECT_SOURCE_DIR}/../shared/data"
    PTCLOUD_SOURCE_DIR="${PROJECT_SOURCE_DIR}")
  add_test(NAME ${T_NAME} COMMAND ${T_NAME})
  if(NOT T_TIMEOUT)
    set(T_TIMEOUT 300)
  endif()
  if(T_GL)
    set_tests_properties(${T_NAME} PROPERTIES LABELS gl TIMEOUT ${T_TIMEOUT})
  else()
    set_tests_properties(${T_NAME} PROPERTIES TIMEOUT ${T_TIMEOUT}
      ENVIRONMENT "QT_QPA_PLATFORM=offscreen")
  endif()
endfunction()
