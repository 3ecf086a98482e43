ptcloud_add_test(NAME tst_volume_list SOURCES ${CMAKE_CURRENT_LIST_DIR}/tst_volume_list.cpp LIBS ptcloud)
