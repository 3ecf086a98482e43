ptcloud_add_test(NAME tst_long_actions SOURCES ${CMAKE_CURRENT_LIST_DIR}/tst_long_actions.cpp LIBS ptcloud)
