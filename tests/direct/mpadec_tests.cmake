# The MPEG audio decoder's stages and synthesis; its PCM against libmpg123
# (floating point) over encoded files and built streams.
add_executable(mpadec_tests ${CMAKE_CURRENT_LIST_DIR}/mpadec_stages_test.cpp
                            ${CMAKE_CURRENT_LIST_DIR}/mpadec_synth_test.cpp)
target_link_libraries(mpadec_tests PRIVATE pmx_mpadec GTest::gtest_main)
gtest_discover_tests(mpadec_tests TEST_PREFIX "mpadec.")
find_package(PkgConfig REQUIRED)
pkg_check_modules(MPG123 REQUIRED IMPORTED_TARGET libmpg123)
add_library(mpa_reference STATIC ${CMAKE_CURRENT_LIST_DIR}/mpa_reference.cpp)
target_include_directories(mpa_reference PUBLIC ${PROJECT_SOURCE_DIR})
target_link_libraries(mpa_reference PUBLIC pmx_platform pmx_mpadec PkgConfig::MPG123 GTest::gtest)
add_executable(mpadec_accuracy_tests ${CMAKE_CURRENT_LIST_DIR}/mpadec_accuracy_test.cpp)
target_link_libraries(mpadec_accuracy_tests PRIVATE pmx_mpadec pmx_test_support mpa_reference GTest::gtest_main)
gtest_discover_tests(mpadec_accuracy_tests TEST_PREFIX "mpadec." PROPERTIES TIMEOUT 120)
