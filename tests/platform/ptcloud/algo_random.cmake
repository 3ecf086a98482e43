# The shared pseudo-random generator.
ptcloud_add_test(NAME tst_algo_random
  SOURCES ${CMAKE_CURRENT_LIST_DIR}/tst_algo_random.cpp
  LIBS ptcloud)
