# Reading, changing, replacing and re-reading arbitrary password files.
korvane_add_fuzzer(PasswordFileFuzzer
  SOURCES ${CMAKE_CURRENT_LIST_DIR}/PasswordFileFuzzer.cpp
  LIBRARIES korvane_setUserPassword)
