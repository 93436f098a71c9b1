# Logging in: with the random bytes under the test's control, then against foreign clients and servers.
target_include_directories(http_auth_test PRIVATE "${OPENSSL_INCLUDE_DIR}")
target_link_options(http_auth_test PRIVATE -Wl,--wrap=RAND_bytes)
