# LAS reading and writing: real files against their manifest, broken files,
# every point format with known values, and the writer's round trip.
foreach(t tst_las_manifest tst_las_broken tst_las_formats tst_las_writer tst_laz)
  ptcloud_add_test(NAME ${t} SOURCES ${CMAKE_CURRENT_LIST_DIR}/${t}.cpp LIBS ptcloud)
endforeach()
