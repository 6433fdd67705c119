# The user search over arbitrary users.json content.
korvane_add_fuzzer(UserSearchFuzzer
  SOURCES ${CMAKE_CURRENT_LIST_DIR}/UserSearchFuzzer.cpp
  LIBRARIES korvane_setUserPassword)
