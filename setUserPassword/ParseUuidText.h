// parseUuidText: the user search's fast reading of a UUID's text. It
// accepts exactly what utils::core::Uuid::fromString accepts (8-4-4-4-12
// hexadecimal digits in either letter case) and gives the same value, but
// checks and converts the 32 digits 16 at a time with SSE2 (every x86-64
// processor has it; elsewhere it calls Uuid::fromString), since the search
// reads one UUID for every user in the file.
//
// Thread safety: a pure function.
#pragma once

#include <optional>
#include <string_view>

#include "utils/core/Uuid.h"

namespace korvane::setUserPassword {

std::optional<utils::core::Uuid> parseUuidText(std::string_view text) noexcept;

}  // namespace korvane::setUserPassword
