#pragma once

#include <cstddef>
#include <ostream>
#include <streambuf>

namespace example {

/// Counts bytes written and keeps none of them.
class ByteCounter : public std::streambuf {
public:
    std::size_t count() const { return count_; }

protected:
    int_type overflow(int_type c) override {
        ++count_;
        return traits_type::not_eof(c);
    }
    std::streamsize xsputn(const char*, std::streamsize n) override {
        count_ += static_cast<std::size_t>(n);
        return n;
    }

private:
    std::size_t count_ = 0;
};

/// The size of an object in its saved form, in MiB.
template <class Object>
double savedMiB(const Object& object) {
    ByteCounter counter;
    std::ostream stream(&counter);
    object.save(stream);
    return static_cast<double>(counter.count()) / (1 << 20);
}

} // namespace example
