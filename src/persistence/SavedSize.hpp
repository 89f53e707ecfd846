#pragma once

#include "core/Integers.hpp"

#include <ostream>
#include <streambuf>

namespace Torvo::detail {

/// Counts what is written and keeps nothing of it: an array comes as one pointer and is not read.
class SizeBuffer : public std::streambuf {
public:
    u64 count() const { return count_; }

protected:
    std::streamsize xsputn(const char*, std::streamsize byteCount) override {
        count_ += static_cast<u64>(byteCount);
        return byteCount;
    }
    int_type overflow(int_type character) override {
        if (!traits_type::eq_int_type(character, traits_type::eof())) ++count_;
        return traits_type::not_eof(character);
    }

private:
    u64 count_ = 0;
};

/// The bytes that `object.save(stream)` writes.
template <class T>
u64 savedSize(const T& object) {
    SizeBuffer buffer;
    std::ostream stream(&buffer);
    object.save(stream);
    return buffer.count();
}

} // namespace Torvo::detail
