# Finds the zxcvbn password strength estimator (C library).
#
# Debian: libzxcvbn-dev. Elsewhere (Windows), point ZXCVBN_ROOT at a folder
# holding include/zxcvbn.h and lib/libzxcvbn.a (or zxcvbn.lib).
#
# Defines Zxcvbn_FOUND and the imported target Zxcvbn::Zxcvbn.

set(ZXCVBN_ROOT "" CACHE PATH "Folder with include/zxcvbn.h and lib/ of a prebuilt zxcvbn")

find_path(Zxcvbn_INCLUDE_DIR zxcvbn.h HINTS "${ZXCVBN_ROOT}/include")
# The shared library where there is one: Debian's libzxcvbn.a is not built
# position-independent, and the program stays a position-independent
# executable (address-space randomisation for a tool that holds passwords).
find_library(Zxcvbn_LIBRARY NAMES zxcvbn libzxcvbn.a HINTS "${ZXCVBN_ROOT}/lib")

include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(Zxcvbn REQUIRED_VARS Zxcvbn_LIBRARY Zxcvbn_INCLUDE_DIR)

if(Zxcvbn_FOUND AND NOT TARGET Zxcvbn::Zxcvbn)
  add_library(Zxcvbn::Zxcvbn UNKNOWN IMPORTED)
  set_target_properties(Zxcvbn::Zxcvbn PROPERTIES
    IMPORTED_LOCATION "${Zxcvbn_LIBRARY}"
    INTERFACE_INCLUDE_DIRECTORIES "${Zxcvbn_INCLUDE_DIR}")
  if(NOT WIN32)
    set_property(TARGET Zxcvbn::Zxcvbn APPEND PROPERTY INTERFACE_LINK_LIBRARIES m)
  endif()
endif()
mark_as_advanced(Zxcvbn_INCLUDE_DIR Zxcvbn_LIBRARY)
