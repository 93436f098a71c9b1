# The daemon's parts without sockets, and the daemon itself from outside.
if(TARGET mgmtd)
  file(GLOB mgmtd_sources CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/pkg/mgmtd/*.cpp")
  list(FILTER mgmtd_sources EXCLUDE REGEX "/(main|options)\\.cpp$")
  kutil_test(mgmtd_test programs/mgmtd_test.cpp ${mgmtd_sources} LIBRARIES kutil_common)

  find_program(KUTIL_PYTHON python3)
  if(KUTIL_PYTHON AND NOT CMAKE_CROSSCOMPILING)
    set(mgmtd_http "${KUTIL_PYTHON}" "${CMAKE_CURRENT_LIST_DIR}/mgmtd_http.py" "$<TARGET_FILE:mgmtd>"
      "${PROJECT_SOURCE_DIR}/share/gateway.conf")
    if(KUTIL_SANITIZE)
      list(APPEND mgmtd_http --sanitized)
    endif()
    add_test(NAME mgmtd_http COMMAND ${mgmtd_http})
    set_tests_properties(mgmtd_http PROPERTIES LABELS host TIMEOUT 300)
    add_test(NAME mgmtd_http_slow COMMAND ${mgmtd_http} --slow)
    set_tests_properties(mgmtd_http_slow PROPERTIES LABELS slow TIMEOUT 900)
    add_test(NAME mgmtd_browser COMMAND "${KUTIL_PYTHON}" "${CMAKE_CURRENT_LIST_DIR}/mgmtd_browser.py" "$<TARGET_FILE:mgmtd>"
      "${PROJECT_SOURCE_DIR}/share/gateway.conf" "${CMAKE_CURRENT_BINARY_DIR}/screenshots")
    set_tests_properties(mgmtd_browser PROPERTIES LABELS host TIMEOUT 300 SKIP_RETURN_CODE 77)
  endif()
endif()
