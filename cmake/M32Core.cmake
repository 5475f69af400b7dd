# The 32-bit build of the parts that need no net-snmp (Debian's i386 net-snmp cannot be relied
# on): ring logs, profile store, format emulation, time arithmetic, frame parsing, with the unit
# tests that need nothing else. Frame parsing has none of its own: the frame tests go through the
# handlers. Configured with -m32 in CMAKE_C_FLAGS and CMAKE_CXX_FLAGS (scripts/test-m32.sh).
include(CheckTypeSize)
if(NOT CMAKE_SIZEOF_VOID_P EQUAL 4)
  message(FATAL_ERROR "SNMPLUMI_M32_CORE needs a 32-bit target: set CMAKE_C_FLAGS and "
                      "CMAKE_CXX_FLAGS to -m32")
endif()
# The host's time_t is the default one, 32 bits: exported calls take it.
check_type_size(time_t SNMPLUMI_TIME_T_SIZE LANGUAGE CXX)
if(NOT SNMPLUMI_TIME_T_SIZE EQUAL 4)
  message(FATAL_ERROR "time_t is ${SNMPLUMI_TIME_T_SIZE} bytes; the 32-bit host's is 4")
endif()

add_library(snmplumi_core STATIC ${SNMPLUMI_PORTABLE_SOURCES})
target_include_directories(snmplumi_core
  PUBLIC ${PROJECT_SOURCE_DIR}/include
  PRIVATE ${PROJECT_SOURCE_DIR}/src)
target_link_libraries(snmplumi_core PUBLIC Threads::Threads)

# GoogleTest from its sources: no i386 package is relied on either.
set(BUILD_GMOCK OFF CACHE BOOL "" FORCE)
set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
add_subdirectory(/usr/src/googletest ${PROJECT_BINARY_DIR}/googletest EXCLUDE_FROM_ALL)
include(GoogleTest)

enable_testing()
add_library(snmplumi_test_support STATIC tests/support/test_home.cpp)
target_include_directories(snmplumi_test_support
  PUBLIC ${PROJECT_SOURCE_DIR}/tests/support ${PROJECT_SOURCE_DIR}/src)
target_link_libraries(snmplumi_test_support PUBLIC snmplumi_core)

add_executable(snmplumi_unit_tests_m32
  tests/unit/format_line_test.cpp
  tests/unit/locks_test.cpp
  tests/unit/platform_test.cpp
  tests/unit/profile_test.cpp
  tests/unit/ring_log_test.cpp
  tests/unit/sleep_time_test.cpp
)
target_link_libraries(snmplumi_unit_tests_m32 PRIVATE snmplumi_test_support gtest gtest_main)
gtest_discover_tests(snmplumi_unit_tests_m32 DISCOVERY_TIMEOUT 60 PROPERTIES LABELS m32)
