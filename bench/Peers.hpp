#pragma once

#include <functional>
#include <memory>
#include <streambuf>
#include <string>
#include <vector>

namespace agent::orvi::bench {

/// One way to read and write the same 64 MiB as characters.
struct Peer {
    std::string name;

    /// Make a stream buffer that stands anywhere in the bytes. At most one per peer may exist.
    std::function<std::unique_ptr<std::streambuf>()> open;
};

/// Return ours and every stream buffer that it is measured against.
const std::vector<Peer>& peers();

} // namespace agent::orvi::bench
