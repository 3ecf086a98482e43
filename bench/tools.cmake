# The section strip and the stockpile volume on a large demo scene.
add_executable(bench_tools ${CMAKE_CURRENT_LIST_DIR}/bench_tools.cpp)
target_link_libraries(bench_tools PRIVATE ptcloud)
ptcloud_warnings(bench_tools)
