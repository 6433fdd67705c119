# The console escape-sequence writer over an in-memory console.
korvane_add_fuzzer(ConsoleWriterFuzzer
  SOURCES ${CMAKE_CURRENT_LIST_DIR}/ConsoleWriterFuzzer.cpp
    ${PROJECT_SOURCE_DIR}/tests/support/MemoryConsole.cpp
  LIBRARIES korvane_lineEdit)
