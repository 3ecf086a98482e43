# Clustering stages against Open3D's DBSCAN on a real airborne scene.
add_executable(bench_algo_clusters ${CMAKE_CURRENT_LIST_DIR}/bench_algo_clusters.cpp)
target_link_libraries(bench_algo_clusters PRIVATE ptcloud Open3D::Open3D)
target_compile_definitions(bench_algo_clusters PRIVATE
  PTCLOUD_SHARED_DATA_DIR="${PROJECT_SOURCE_DIR}/../shared/data")
ptcloud_warnings(bench_algo_clusters)
