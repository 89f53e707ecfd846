#pragma once

#include <cstddef>
#include <streambuf>

namespace Torvo::detail {

/// A stream buffer over the caller's memory, for secrets: unlike a string stream it makes no copies that
/// would have to be wiped. Reads end and writes fail at the end of the memory.
class MemoryBuffer : public std::streambuf {
public:
    MemoryBuffer(char* memory, std::size_t byteCount) {
        setg(memory, memory, memory + byteCount);
        setp(memory, memory + byteCount);
    }
};

} // namespace Torvo::detail
