# Rendering: frame time by the order of the points inside blocks (run it
# under xvfb-run).
add_executable(bench_render_order ${CMAKE_CURRENT_LIST_DIR}/bench_render_order.cpp)
target_link_libraries(bench_render_order PRIVATE graph Qt5::Test)
ptcloud_warnings(bench_render_order)
