# GoogleTest is built from the same sources inside every build tree, so that
# the native, -m32, sanitizer and MinGW builds all use one framework.
if(NOT EXISTS "${QVBASE_GOOGLETEST_SOURCE}/CMakeLists.txt")
  message(FATAL_ERROR "GoogleTest sources not found at ${QVBASE_GOOGLETEST_SOURCE}; run tools/setup.sh")
endif()
set(BUILD_GMOCK OFF CACHE BOOL "" FORCE)
set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
set(gtest_force_shared_crt ON CACHE BOOL "" FORCE)
add_subdirectory(${QVBASE_GOOGLETEST_SOURCE} ${CMAKE_BINARY_DIR}/googletest EXCLUDE_FROM_ALL)

include(GoogleTest)

# qvbase_add_test(<name> SOURCES ... [LIBRARIES ...] [LABELS ...])
# One executable per class family. Natively every test case is its own CTest
# test; under an emulator (Wine) the executable is registered once, because
# each process start there costs seconds. LABELS mark the tests for presets
# that run a part of the suite (the "threads" label: the thread sanitizer's).
function(qvbase_add_test name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LIBRARIES;LABELS" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE qvbase_test_support ${ARG_LIBRARIES} qvbase_warnings)
  set(labels)
  if(ARG_LABELS)
    set(labels LABELS "${ARG_LABELS}")
  endif()
  if(CMAKE_CROSSCOMPILING)
    add_test(NAME ${name} COMMAND ${name})
    if(ARG_LABELS)
      set_tests_properties(${name} PROPERTIES ${labels})
    endif()
  else()
    gtest_discover_tests(${name} DISCOVERY_TIMEOUT 60 PROPERTIES TIMEOUT 300 ${labels})
  endif()
endfunction()
