// readSkimmingFirst: how a configuration file is read, in at most two
// passes. The fast pass (a skim over the raw bytes, see
// utils/json/decoder/Skimmer.h) settles the common case, a well-formed
// file; where it gives up, the exact pass reads the file again from its
// start with the streaming decoder, which locates every error. A file that
// cannot be read twice (a FIFO, a device) gets the exact pass alone.
//
// Thread safety: reentrant.
#pragma once

#include <functional>

#include "setUserPassword/SearchPass.h"
#include "utils/io/File.h"
#include "utils/io/InputStream.h"
#include "utils/json/decoder/Skimmer.h"

namespace korvane::setUserPassword {

// Runs `skim` over the bytes of `file` and, where it returns false, `exact`
// over a stream of the whole file; returns the pass that settled the read.
// Exceptions of either pass (a read failure, the exact pass's errors) pass
// through.
SearchPass readSkimmingFirst(
    utils::io::File file,
    const std::function<bool(const utils::json::decoder::Skimmer::Reader&)>& skim,
    const std::function<void(utils::io::InputStream<char>&)>& exact);

}  // namespace korvane::setUserPassword
