# Cross-compiles the Windows (x86-64) build on Linux with MinGW-w64 (GCC,
# posix thread model) and runs the test programs under Wine.
#
#   cmake --preset mingw      # or: cmake -DCMAKE_TOOLCHAIN_FILE=<this file> ...
#
# The programs link statically (libgcc, libstdc++, winpthread), so a built
# .exe needs no DLL besides the system's own. {fmt} is used header-only from
# the build host's headers (KORVANE_FMT_HEADERS); GoogleTest is built from
# the host's sources (KORVANE_GTEST_SOURCE_DIR).

set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(KORVANE_MINGW_PREFIX x86_64-w64-mingw32)
set(CMAKE_C_COMPILER ${KORVANE_MINGW_PREFIX}-gcc-posix)
set(CMAKE_CXX_COMPILER ${KORVANE_MINGW_PREFIX}-g++-posix)
set(CMAKE_RC_COMPILER ${KORVANE_MINGW_PREFIX}-windres)

# Libraries and headers of the target only; programs of the build host.
set(CMAKE_FIND_ROOT_PATH /usr/${KORVANE_MINGW_PREFIX})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

set(CMAKE_EXE_LINKER_FLAGS_INIT "-static -static-libgcc -static-libstdc++")

# Test programs run under Wine, also to list their tests. The listing waits
# for the test run (PRE_TEST), so building needs no Wine.
find_program(KORVANE_WINE wine)
if(KORVANE_WINE)
  set(CMAKE_CROSSCOMPILING_EMULATOR ${KORVANE_WINE})
endif()
set(CMAKE_GTEST_DISCOVER_TESTS_DISCOVERY_MODE PRE_TEST)

# A prebuilt zxcvbn (ZXCVBN_ROOT) lies outside the target root above; its
# folder becomes a root of its own so that FindZxcvbn can look into it.
if(ZXCVBN_ROOT)
  list(APPEND CMAKE_FIND_ROOT_PATH "${ZXCVBN_ROOT}")
endif()

set(KORVANE_FMT_HEADERS /usr/include/fmt CACHE PATH "{fmt} headers, used header-only")
set(KORVANE_GTEST_SOURCE_DIR /usr/src/googletest CACHE PATH "GoogleTest sources to build")
