# How everything of this project is compiled, and how a program of it is linked.

set(CMAKE_C_STANDARD 11)
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_C_EXTENSIONS ON) # the POSIX and GNU declarations of the C library
set(CMAKE_CXX_EXTENSIONS ON)
set(CMAKE_C_STANDARD_REQUIRED ON)
set(CMAKE_CXX_STANDARD_REQUIRED ON)

# What the whole project shares: the warnings, the sanitizers, 64-bit time and file offsets on 32-bit targets.
add_library(kutil_warnings INTERFACE)
target_compile_options(kutil_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wformat=2 -Wno-format-nonliteral -Wundef
  -Wno-missing-field-initializers # what a designated initializer leaves out is zero
  -Wpointer-arith -Wwrite-strings
  $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor -Woverloaded-virtual>)
if(KUTIL_WERROR)
  target_compile_options(kutil_warnings INTERFACE -Werror)
endif()

add_library(kutil_common_flags INTERFACE)
if(KUTIL_SANITIZE)
  target_compile_options(kutil_common_flags INTERFACE
    -fsanitize=${KUTIL_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(kutil_common_flags INTERFACE -fsanitize=${KUTIL_SANITIZE})
endif()
# On a 32-bit C library with a choice, callers must make the same one: date.h and file positions depend on it.
set(KUTIL_PUBLIC_DEFINITIONS "")
if(CMAKE_SIZEOF_VOID_P EQUAL 4)
  set(KUTIL_PUBLIC_DEFINITIONS _TIME_BITS=64 _FILE_OFFSET_BITS=64)
endif()
target_compile_definitions(kutil_common_flags INTERFACE ${KUTIL_PUBLIC_DEFINITIONS})

# C++ without its run-time library: the library and every program that ships.
add_library(kutil_no_runtime INTERFACE)
target_link_libraries(kutil_no_runtime INTERFACE kutil_common_flags)
target_compile_options(kutil_no_runtime INTERFACE
  -fvisibility=hidden -ffunction-sections -fdata-sections -fno-strict-aliasing
  $<$<COMPILE_LANGUAGE:CXX>:-fno-exceptions -fno-rtti -fno-threadsafe-statics>)
if(NOT KUTIL_SANITIZE)
  target_compile_options(kutil_no_runtime INTERFACE -fno-semantic-interposition)
endif()

# Linking as C, without the C++ driver's implicit libraries, makes a dependency on the C++ run-time a link error.
function(kutil_link_as_c target)
  set_target_properties(${target} PROPERTIES LINKER_LANGUAGE C)
  target_link_options(${target} PRIVATE -Wl,-z,defs -Wl,--as-needed -Wl,--gc-sections)
endfunction()
macro(kutil_no_implicit_cxx_libraries)
  set(CMAKE_CXX_IMPLICIT_LINK_LIBRARIES "")
endmacro()

# kutil_program(NAME [LIBC_ONLY]): the program NAME from pkg/NAME/*.cpp, installed with its completion. LIBC_ONLY is for
# scripts/check-library: the program uses no part of the library that needs libcrypto.
function(kutil_program name)
  kutil_no_implicit_cxx_libraries()
  file(GLOB sources CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/pkg/${name}/*.cpp")
  add_executable(${name} ${sources})
  target_compile_definitions(${name} PRIVATE KUTIL_VERSION="${PROJECT_VERSION}")
  target_link_libraries(${name} PRIVATE kutil_common kutil_static kutil_no_runtime kutil_warnings)
  kutil_link_as_c(${name})
  set_property(GLOBAL APPEND PROPERTY kutil_programs ${name})
  install(TARGETS ${name} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
  set(completion "${PROJECT_SOURCE_DIR}/packaging/completion/${name}")
  if(EXISTS "${completion}")
    install(FILES "${completion}" DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
  endif()
endfunction()
