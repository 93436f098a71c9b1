# What the programs share: listing, difference.
kutil_test(common_test "${CMAKE_CURRENT_LIST_DIR}/common_test.cpp" LIBRARIES kutil_common)
