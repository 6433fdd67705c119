# Build conventions shared by every target of the project.

if(WIN32)
  set(KORVANE_PLATFORM windows)
else()
  set(KORVANE_PLATFORM posix)
endif()

# Headers generated at configure time, included like the sources beside them
# ("setUserPassword/Version.h").
set(KORVANE_GENERATED_INCLUDE_DIR "${PROJECT_BINARY_DIR}/generated")

# Warnings are errors on every compiler the project supports.
function(korvane_set_warnings target)
  if(MSVC)
    target_compile_options(${target} PRIVATE /W4 /WX /permissive- /utf-8)
  else()
    target_compile_options(${target} PRIVATE
      -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror)
    # GCC 12 reports overlapping copies inside std::string's operator+ at
    # -O3 that cannot happen (GCC bug 105651).
    if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
      target_compile_options(${target} PRIVATE -Wno-restrict)
    endif()
  endif()
endfunction()

# korvane_add_library(<name> [STATIC|INTERFACE] SOURCES ... PLATFORM_SOURCES ...)
# PLATFORM_SOURCES name the portable stem of a platform file: "File" adds
# File_posix.cpp or File_windows.cpp, whichever matches the target system.
function(korvane_add_library name)
  cmake_parse_arguments(ARG "INTERFACE" "" "SOURCES;PLATFORM_SOURCES" ${ARGN})
  if(ARG_INTERFACE)
    add_library(${name} INTERFACE)
    target_include_directories(${name} INTERFACE "${PROJECT_SOURCE_DIR}")
    return()
  endif()
  set(sources ${ARG_SOURCES})
  foreach(stem IN LISTS ARG_PLATFORM_SOURCES)
    list(APPEND sources "${stem}_${KORVANE_PLATFORM}.cpp")
  endforeach()
  add_library(${name} STATIC ${sources})
  target_include_directories(${name} PUBLIC "${PROJECT_SOURCE_DIR}" "${KORVANE_GENERATED_INCLUDE_DIR}")
  korvane_set_warnings(${name})
endfunction()

# korvane_optimise_start_up(<program>): a run of the program is short, so
# its start-up counts. On ELF systems the program is linked with unused
# sections dropped (most of the statically linked C++ runtime: about 40% of
# the file), its relative relocations packed (DT_RELR, where the linker and
# the C library support it: a few hundred bytes instead of 77 KiB for the
# dynamic loader to read), only the shared libraries it uses, and every
# symbol bound at load (full RELRO: the GOT is read-only before main runs).
function(korvane_optimise_start_up target)
  if(WIN32 OR APPLE OR MSVC)
    return()
  endif()
  include(CheckLinkerFlag)
  check_linker_flag(CXX "LINKER:-z,pack-relative-relocs" KORVANE_LINKER_PACKS_RELOCATIONS)
  target_link_options(${target} PRIVATE
    LINKER:-O1 LINKER:--as-needed LINKER:--gc-sections LINKER:-z,relro,-z,now)
  if(KORVANE_LINKER_PACKS_RELOCATIONS)
    target_link_options(${target} PRIVATE LINKER:-z,pack-relative-relocs)
  endif()
endfunction()
