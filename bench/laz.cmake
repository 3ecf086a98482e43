# LAZ reading against LAS reading of the same points.
add_executable(bench_laz ${CMAKE_CURRENT_LIST_DIR}/bench_laz.cpp)
target_link_libraries(bench_laz PRIVATE ptcloud)
ptcloud_warnings(bench_laz)
