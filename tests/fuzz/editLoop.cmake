# The line editor's edit loop over arbitrary key streams. Built from the
# sources it exercises (and secureZero) rather than the whole line-editing
# library, so that it needs nothing else of the utility library.
korvane_add_fuzzer(EditLoopFuzzer
  SOURCES
    EditLoopFuzzer.cpp
    ${PROJECT_SOURCE_DIR}/lineEdit/EditLoop.cpp
    ${PROJECT_SOURCE_DIR}/lineEdit/CharacterWidth.cpp
    ${PROJECT_SOURCE_DIR}/lineEdit/History.cpp
    ${PROJECT_SOURCE_DIR}/utils/core/SecureZero.cpp
  LIBRARIES fmt::fmt)
target_include_directories(EditLoopFuzzer PRIVATE "${PROJECT_SOURCE_DIR}")
