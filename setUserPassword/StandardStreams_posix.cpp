#include "setUserPassword/StandardStreams.h"

namespace korvane::setUserPassword {

// The terminal decodes the UTF-8 bytes itself; the streams stay as they are.
void prepareStandardStreams() {}

}  // namespace korvane::setUserPassword
