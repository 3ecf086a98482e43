# Clustering, normals and region growing.
ptcloud_add_test(NAME tst_algo_clusters
  SOURCES ${CMAKE_CURRENT_LIST_DIR}/tst_algo_clusters.cpp
  LIBS ptcloud)
ptcloud_add_test(NAME tst_algo_clusters_regions
  SOURCES ${CMAKE_CURRENT_LIST_DIR}/tst_algo_clusters_regions.cpp
  LIBS ptcloud)
