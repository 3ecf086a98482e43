# The section strip: which points and which blocks a profile takes.
ptcloud_add_test(NAME tst_section_strip SOURCES ${CMAKE_CURRENT_LIST_DIR}/tst_section_strip.cpp LIBS ptcloud)
