# Changing arbitrary password files by every pass and through a real
# replacement, against the reference of tests/support (built here, since
# fuzz builds leave the tests out).
korvane_add_fuzzer(PasswordFileFuzzer
  SOURCES ${CMAKE_CURRENT_LIST_DIR}/PasswordFileFuzzer.cpp
    ${CMAKE_CURRENT_LIST_DIR}/../support/PasswordFileReference.cpp
  LIBRARIES korvane_setUserPassword)
