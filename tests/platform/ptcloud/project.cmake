ptcloud_add_test(NAME tst_project SOURCES ${CMAKE_CURRENT_LIST_DIR}/tst_project.cpp LIBS ptcloud)
