# The JSON decoder over arbitrary bytes, walked by skipping and through the
# typed views.
korvane_add_fuzzer(JsonDecoderFuzzer
  SOURCES JsonDecoderFuzzer.cpp
  LIBRARIES korvane_utils_json)
