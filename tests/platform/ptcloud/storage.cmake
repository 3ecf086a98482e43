# Block storage: point-array edits, the block file format with its atomic
# writer and readers, and the out-of-core dataset builder.
foreach(t tst_storage_pointarray tst_storage_file tst_storage_builder)
  ptcloud_add_test(NAME ${t} SOURCES ${CMAKE_CURRENT_LIST_DIR}/${t}.cpp LIBS ptcloud)
endforeach()
