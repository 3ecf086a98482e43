# The cut of a dataset's points and one level of undo, on a real survey file.
ptcloud_add_test(NAME tst_points_cut SOURCES ${CMAKE_CURRENT_LIST_DIR}/tst_points_cut.cpp LIBS ptcloud)
