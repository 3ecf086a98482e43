# Ground filtering and the DEM products.
ptcloud_add_test(NAME tst_algo_ground
  SOURCES ${CMAKE_CURRENT_LIST_DIR}/tst_algo_ground.cpp
  LIBS ptcloud)
ptcloud_add_test(NAME tst_algo_ground_dem
  SOURCES ${CMAKE_CURRENT_LIST_DIR}/tst_algo_ground_dem.cpp
  LIBS ptcloud)
