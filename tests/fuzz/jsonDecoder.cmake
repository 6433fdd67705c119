# The JSON decoder over arbitrary bytes, walked by skipping and through the
# typed views.
korvane_add_fuzzer(JsonDecoderFuzzer
  SOURCES ${CMAKE_CURRENT_LIST_DIR}/JsonDecoderFuzzer.cpp
  LIBRARIES korvane_utils_json)
