# Ground filters and DEM products on a tiled ISPRS sample, with the filters'
# errors on every ISPRS sample.
add_executable(bench_algo_ground ${CMAKE_CURRENT_LIST_DIR}/bench_algo_ground.cpp)
target_link_libraries(bench_algo_ground PRIVATE ptcloud)
target_compile_definitions(bench_algo_ground PRIVATE
  PTCLOUD_SHARED_DATA_DIR="${PROJECT_SOURCE_DIR}/../shared/data")
ptcloud_warnings(bench_algo_ground)
