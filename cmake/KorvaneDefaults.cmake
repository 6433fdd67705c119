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
