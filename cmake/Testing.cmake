# GoogleTest: Debian's libgtest-dev natively; for the Windows cross-build it is
# compiled from Debian's googletest sources. Windows test programs run under
# Wine through CMAKE_CROSSCOMPILING_EMULATOR (see cmake/wine-run.sh).

include(CTest)
enable_testing()

if(NOT BUILD_TESTING)
  # A build of the programs alone (scripts/run.sh) needs no GoogleTest.
elseif(WIN32)
  set(VGCR_GTEST_SOURCE_DIR /usr/src/googletest CACHE PATH "GoogleTest sources")
  set(gtest_force_shared_crt ON CACHE BOOL "" FORCE)
  set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
  set(BUILD_GMOCK ON CACHE BOOL "" FORCE)
  add_subdirectory(${VGCR_GTEST_SOURCE_DIR} ${CMAKE_BINARY_DIR}/_googletest EXCLUDE_FROM_ALL)
  # GoogleTest 1.12 defines the GTest:: aliases itself.
else()
  find_package(GTest REQUIRED)
  include(GoogleTest)
endif()

# vgcr_add_gtest(name SOURCES ... LIBS ...)
# Natively every test case becomes its own ctest entry; under Wine one entry
# per program keeps the number of Wine start-ups small.
function(vgcr_add_gtest name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LIBS;LOCKS" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  vgcr_target_defaults(${name})
  if(VGCR_SANITIZE OR VGCR_TSAN)
    # Bounds on how soon something happens allow for the sanitizers' pace.
    target_compile_definitions(${name} PRIVATE VGCR_SANITIZED=1)
  endif()
  target_link_libraries(${name} PRIVATE ${ARG_LIBS} GTest::gtest GTest::gtest_main)
  # LOCKS: machine-wide names the program uses (pipe names on Windows,
  # shared-memory records), so that ctest never runs two users at once.
  if(CMAKE_CROSSCOMPILING)
    add_test(NAME ${name} COMMAND ${name})
    set_tests_properties(${name} PROPERTIES TIMEOUT 300)
    if(ARG_LOCKS)
      set_tests_properties(${name} PROPERTIES RESOURCE_LOCK "${ARG_LOCKS}")
    endif()
  elseif(ARG_LOCKS)
    gtest_discover_tests(${name} DISCOVERY_TIMEOUT 60 PROPERTIES TIMEOUT 120 RESOURCE_LOCK "${ARG_LOCKS}")
  else()
    gtest_discover_tests(${name} DISCOVERY_TIMEOUT 60 PROPERTIES TIMEOUT 120)
  endif()
endfunction()
