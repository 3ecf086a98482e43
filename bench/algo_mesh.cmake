# Meshing, Poisson-disk thinning and earth volumes, with Open3D's Poisson-disk
# elimination as the baseline.
add_executable(bench_algo_mesh ${CMAKE_CURRENT_LIST_DIR}/bench_algo_mesh.cpp)
target_link_libraries(bench_algo_mesh PRIVATE ptcloud Open3D::Open3D)
target_compile_definitions(bench_algo_mesh PRIVATE
  PTCLOUD_SHARED_DATA_DIR="${PROJECT_SOURCE_DIR}/../shared/data")
ptcloud_warnings(bench_algo_mesh)
