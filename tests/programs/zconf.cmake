kutil_test(durable_save_test programs/durable_save_test.cpp LIBRARIES kutil_common)

if(TARGET zconf)
  kutil_test(zconf_test programs/zconf_test.cpp "${PROJECT_SOURCE_DIR}/pkg/zconf/value_type.cpp"
    LIBRARIES kutil_common)
  kutil_test(zconf_host_test programs/zconf_host_test.cpp LABELS host)
  foreach(test zconf_test zconf_host_test)
    target_compile_definitions(${test} PRIVATE KUTIL_ZCONF="$<TARGET_FILE:zconf>")
    add_dependencies(${test} zconf)
  endforeach()
endif()
