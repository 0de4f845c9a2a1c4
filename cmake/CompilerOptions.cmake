# Project-wide compiler settings. Targets opt in through vgcr_target_defaults()
# so that third-party code built in-tree (GoogleTest for mingw) keeps its own.

set(VGCR_WARNINGS -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor
    -Wcast-align -Wformat=2 -Werror)

if(WIN32)
  # Windows 7 API level; UNICODE so that every Win32 call we make is the W form.
  set(VGCR_PLATFORM_DEFINES _WIN32_WINNT=0x0601 WINVER=0x0601 UNICODE _UNICODE
      WIN32_LEAN_AND_MEAN NOMINMAX)
  # Everything the DLL and the test programs need is linked in, so a bare
  # Windows (or Wine) runs them with nothing installed beside them.
  string(APPEND CMAKE_EXE_LINKER_FLAGS " -static")
  # One folder for every Windows binary: programs find the DLL beside them.
  set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)
  set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)
  string(APPEND CMAKE_SHARED_LINKER_FLAGS " -static")
  string(APPEND CMAKE_MODULE_LINKER_FLAGS " -static")
endif()

if(VGCR_SANITIZE)
  add_compile_options(-fsanitize=address,undefined -fno-sanitize-recover=all
                      -fno-omit-frame-pointer)
  add_link_options(-fsanitize=address,undefined)
endif()

if(VGCR_TSAN)
  # ThreadSanitizer: the pool, the listeners, the log writer and the guards
  # share state between threads by design.
  add_compile_options(-fsanitize=thread -fno-omit-frame-pointer)
  add_link_options(-fsanitize=thread)
endif()

option(VGCR_LIBFUZZER "Build fuzz targets with libFuzzer (clang only)" OFF)
if(VGCR_LIBFUZZER)
  # Coverage for libFuzzer in every library the targets link; another
  # compiler's warnings do not stop a fuzzing build.
  add_compile_options(-fsanitize=fuzzer-no-link,address,undefined -Wno-error)
  add_link_options(-fsanitize=address,undefined)
endif()

function(vgcr_target_defaults target)
  target_compile_options(${target} PRIVATE ${VGCR_WARNINGS})
  target_compile_definitions(${target} PRIVATE ${VGCR_PLATFORM_DEFINES})
endfunction()
