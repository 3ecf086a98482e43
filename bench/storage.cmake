# Block storage: dataset build speed and readBlock throughput against a copy.
add_executable(bench_readblock ${CMAKE_CURRENT_LIST_DIR}/bench_readblock.cpp)
target_link_libraries(bench_readblock PRIVATE ptcloud)
ptcloud_warnings(bench_readblock)
