# ptcloud run and ptcloud volume end to end on the demo scene, through QProcess.
ptcloud_add_test(NAME tst_cli_run TIMEOUT 900
  SOURCES ${CMAKE_CURRENT_LIST_DIR}/tst_cli_run.cpp ${CMAKE_CURRENT_LIST_DIR}/tst_cli_runner.cpp
          ${CMAKE_CURRENT_LIST_DIR}/tst_cli_runner.h
  LIBS ptcloud)
target_compile_definitions(tst_cli_run PRIVATE PTCLOUD_CLI="$<TARGET_FILE:ptcloud-cli>")
add_dependencies(tst_cli_run ptcloud-cli)
