# Meshing, Poisson-disk thinning and earth volumes.
ptcloud_add_test(NAME tst_algo_volume
  SOURCES ${CMAKE_CURRENT_LIST_DIR}/tst_algo_volume.cpp ${CMAKE_CURRENT_LIST_DIR}/tst_algo_mesh_progress.h
  LIBS ptcloud)
ptcloud_add_test(NAME tst_algo_sample
  SOURCES ${CMAKE_CURRENT_LIST_DIR}/tst_algo_sample.cpp ${CMAKE_CURRENT_LIST_DIR}/tst_algo_mesh_progress.h
  LIBS ptcloud)
ptcloud_add_test(NAME tst_algo_mesh
  SOURCES ${CMAKE_CURRENT_LIST_DIR}/tst_algo_mesh.cpp ${CMAKE_CURRENT_LIST_DIR}/tst_algo_mesh_progress.h
  LIBS ptcloud)
