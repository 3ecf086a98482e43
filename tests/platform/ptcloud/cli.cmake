# The ptcloud command line end to end (through QProcess on temporary folders)
# and the synthetic demo scene.
foreach(t tst_cli_manifest tst_cli_broken tst_cli_commands tst_cli_safety tst_demo_scene)
  ptcloud_add_test(NAME ${t} TIMEOUT 900
    SOURCES ${CMAKE_CURRENT_LIST_DIR}/${t}.cpp ${CMAKE_CURRENT_LIST_DIR}/tst_cli_runner.cpp
            ${CMAKE_CURRENT_LIST_DIR}/tst_cli_runner.h
    LIBS ptcloud)
  target_compile_definitions(${t} PRIVATE PTCLOUD_CLI="$<TARGET_FILE:ptcloud-cli>")
  add_dependencies(${t} ptcloud-cli)
endforeach()
