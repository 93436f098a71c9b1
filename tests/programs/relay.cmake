# relay, driven from outside.
if(TARGET relay AND NOT CMAKE_CROSSCOMPILING)
  foreach(trials fast slow)
    add_test(NAME relay_${trials}_host_test
             COMMAND python3 "${CMAKE_CURRENT_LIST_DIR}/relay_host_test.py" $<TARGET_FILE:relay> ${trials})
    set_tests_properties(relay_${trials}_host_test PROPERTIES LABELS host TIMEOUT 180 SKIP_RETURN_CODE 77)
  endforeach()
  set_tests_properties(relay_slow_host_test PROPERTIES LABELS "host;slow")
endif()
