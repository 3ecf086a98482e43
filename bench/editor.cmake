# The editor on datasets of millions of points against one static geometry of
# every 10th point (run it under xvfb-run). It makes its datasets with the
# command line.
add_executable(bench_editor ${CMAKE_CURRENT_LIST_DIR}/bench_editor.cpp)
target_link_libraries(bench_editor PRIVATE editor Qt5::Test)
target_compile_definitions(bench_editor PRIVATE PTCLOUD_CLI="$<TARGET_FILE:ptcloud-cli>")
add_dependencies(bench_editor ptcloud-cli)
ptcloud_warnings(bench_editor)
