# The line editor's edit loop over arbitrary key streams.
korvane_add_fuzzer(EditLoopFuzzer
  SOURCES ${CMAKE_CURRENT_LIST_DIR}/EditLoopFuzzer.cpp
  LIBRARIES korvane_lineEdit)
