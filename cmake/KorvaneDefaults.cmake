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

# Hardening of the optimised builds (Release, RelWithDebInfo, MinSizeRel:
# the builds that ship), applied to every target defined after the call.
# A caller that sets its own compiler flags (CXXFLAGS in the environment or
# CMAKE_CXX_FLAGS on the command line) or linker flags (LDFLAGS or
# CMAKE_EXE_LINKER_FLAGS) gets exactly those instead; the sanitizer and
# fuzzing presets do so.
#
# GCC and Clang on ELF systems: the flags Debian's dpkg-buildflags gives
# with every hardening feature on (stack protector "strong",
# _FORTIFY_SOURCE, format-string checks, RELRO and immediate binding), less
# its optimisation and debug flags (the build type chooses those), plus
# -fstack-clash-protection and -fcf-protection (x86 IBT and shadow stack
# marks) where the compiler has them: Debian 12's dpkg-buildflags does not
# give them yet, later ones do. Without dpkg-buildflags the same list is
# used as written below. The compiler's default position-independent
# executable is kept (Debian's compiler makes every program PIE;
# scripts/package.sh checks the packaged program with hardening-check).
#
# MinGW-w64: the stack protector (-fstack-protector-strong, linked with the
# static libssp of Debian's MinGW-w64 compiler, so no DLL is added); the
# executable is always marked for ASLR with high-entropy addresses
# (--dynamicbase --high-entropy-va) and DEP (--nxcompat). MinGW-w64 10's
# headers have no _FORTIFY_SOURCE checks, and Windows probes the stack
# itself (__chkstk), so those two flags are left out there.
function(korvane_harden_build)
  if(NOT CMAKE_CXX_COMPILER_ID MATCHES "GNU|Clang" OR MSVC)
    return()
  endif()
  if(MINGW)
    add_link_options(LINKER:--dynamicbase LINKER:--high-entropy-va LINKER:--nxcompat)
  endif()
  if(NOT CMAKE_BUILD_TYPE MATCHES "^(Release|RelWithDebInfo|MinSizeRel)$")
    return()
  endif()
  set(ownCompileFlags OFF)
  if(NOT CMAKE_CXX_FLAGS STREQUAL "")
    set(ownCompileFlags ON)
  endif()
  set(ownLinkFlags OFF)
  if(NOT CMAKE_EXE_LINKER_FLAGS STREQUAL "")
    set(ownLinkFlags ON)
  endif()

  if(MINGW)
    if(ownCompileFlags)
      message(STATUS "Hardening: compiler flags are the caller's own (${CMAKE_CXX_FLAGS})")
    else()
      add_compile_options(-fstack-protector-strong)
      # The stack protector's guard and failure handler come from libssp,
      # which the compiler driver links when it sees the flag.
      add_link_options(-fstack-protector-strong)
      message(STATUS "Hardening: compiler flags -fstack-protector-strong")
    endif()
    return()
  endif()

  set(compileFlags "")
  set(linkFlags "")
  find_program(KORVANE_DPKG_BUILDFLAGS dpkg-buildflags)
  if(KORVANE_DPKG_BUILDFLAGS)
    foreach(kind CPPFLAGS CXXFLAGS LDFLAGS)
      execute_process(
        COMMAND "${CMAKE_COMMAND}" -E env DEB_BUILD_MAINT_OPTIONS=hardening=+all
                "${KORVANE_DPKG_BUILDFLAGS}" --get ${kind}
        OUTPUT_VARIABLE flags OUTPUT_STRIP_TRAILING_WHITESPACE
        COMMAND_ERROR_IS_FATAL ANY)
      separate_arguments(flags UNIX_COMMAND "${flags}")
      # Optimisation and debug information follow the build type; the
      # build paths are mapped below for every build.
      list(FILTER flags EXCLUDE REGEX "^-(O.*|g.*|ffile-prefix-map=.*|fdebug-prefix-map=.*)$")
      if(kind STREQUAL "LDFLAGS")
        list(APPEND linkFlags ${flags})
      else()
        list(APPEND compileFlags ${flags})
      endif()
    endforeach()
  else()
    set(compileFlags -Wdate-time -D_FORTIFY_SOURCE=2 -fstack-protector-strong
        -Wformat -Werror=format-security)
    set(linkFlags LINKER:-z,relro LINKER:-z,now)
  endif()
  include(CheckCXXCompilerFlag)
  foreach(flag -fstack-clash-protection -fcf-protection)
    string(MAKE_C_IDENTIFIER "KORVANE_HAS${flag}" result)
    check_cxx_compiler_flag(${flag} ${result})
    if(${result} AND NOT flag IN_LIST compileFlags)
      list(APPEND compileFlags ${flag})
    endif()
  endforeach()

  if(ownCompileFlags)
    message(STATUS "Hardening: compiler flags are the caller's own (${CMAKE_CXX_FLAGS})")
  else()
    add_compile_options(${compileFlags})
    list(JOIN compileFlags " " shown)
    message(STATUS "Hardening: compiler flags ${shown}")
  endif()
  if(ownLinkFlags)
    message(STATUS "Hardening: linker flags are the caller's own (${CMAKE_EXE_LINKER_FLAGS})")
  else()
    add_link_options(${linkFlags})
    list(JOIN linkFlags " " shown)
    message(STATUS "Hardening: linker flags ${shown}")
  endif()
endfunction()

# Reproducible builds, for every target defined after the call: no build
# folder in any output and, on Windows, no link time in the executable. The
# source and build folders are written as "." and "build" in debug
# information, __FILE__ and assertion messages, so two checkouts at
# different paths compile to the same bytes; the PE header's time stamp is
# left zero (scripts/check-reproducible.sh).
function(korvane_reproducible_build)
  if(NOT CMAKE_CXX_COMPILER_ID MATCHES "GNU|Clang" OR MSVC)
    return()
  endif()
  if(MINGW)
    add_link_options(LINKER:--no-insert-timestamp)
  endif()
  add_compile_options("-ffile-prefix-map=${PROJECT_SOURCE_DIR}=.")
  cmake_path(IS_PREFIX PROJECT_SOURCE_DIR "${PROJECT_BINARY_DIR}" NORMALIZE binaryInSource)
  if(NOT binaryInSource)
    add_compile_options("-ffile-prefix-map=${PROJECT_BINARY_DIR}=build")
  endif()
endfunction()
