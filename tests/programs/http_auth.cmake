# Logging in: with the random bytes under the test's control, then against foreign clients and servers.
target_include_directories(http_auth_test PRIVATE "${OPENSSL_INCLUDE_DIR}")
target_link_options(http_auth_test PRIVATE -Wl,--wrap=RAND_bytes)

if(TARGET example_http_auth AND NOT CMAKE_CROSSCOMPILING)
  add_executable(auth_server programs/auth_server.cpp)
  target_include_directories(auth_server PRIVATE "${OPENSSL_INCLUDE_DIR}")
  target_link_libraries(auth_server PRIVATE kutil_static kutil_common_flags kutil_warnings)
  add_test(NAME http_auth_host_test COMMAND python3 "${CMAKE_CURRENT_LIST_DIR}/http_auth_host_test.py"
           $<TARGET_FILE:auth_server> $<TARGET_FILE:example_http_auth>)
  set_tests_properties(http_auth_host_test PROPERTIES LABELS host TIMEOUT 120 SKIP_RETURN_CODE 77)
endif()
