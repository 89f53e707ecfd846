#pragma once

#include "core/Integers.hpp"

#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <sstream>
#include <string>

namespace Torvo::test {

/// A file written by hand, field by field, little-endian, by the tables of docs/files.md.
class Bytes {
public:
    /// An archive begins with the byte of the writer's endianness: 1, little.
    static Bytes frame() { return Bytes().u8(1); }

    Bytes& u8(std::uint8_t value) { return number(value, 1); }
    Bytes& u32(std::uint32_t value) { return number(value, 4); }
    Bytes& u64s(std::initializer_list<u64> values) {
        for (const u64 value : values) number(value, 8);
        return *this;
    }
    Bytes& f64(double value) {
        u64 bits = 0;
        std::memcpy(&bits, &value, sizeof bits);
        return number(bits, 8);
    }
    Bytes& raw(const std::string& bytes) {
        bytes_ += bytes;
        return *this;
    }

    const std::string& str() const { return bytes_; }

private:
    Bytes& number(u64 value, int width) {
        for (int i = 0; i < width; ++i) bytes_ += static_cast<char>(value >> (8 * i) & 0xff);
        return *this;
    }

    std::string bytes_;
};

/// What `save` writes to a stream.
template <class Save>
std::string bytesOf(Save&& save) {
    std::ostringstream stream;
    save(static_cast<std::ostream&>(stream));
    return stream.str();
}

/// Objects with members `save` and `load`.
template <class T>
std::string saved(const T& object) {
    return bytesOf([&](std::ostream& stream) { object.save(stream); });
}

template <class T>
void loadFrom(const std::string& bytes, T& object) {
    std::istringstream stream(bytes);
    object.load(stream);
}

/// The text of a short read of one field.
inline std::string shortRead(u64 wanted, u64 got) {
    return "Failed to read " + std::to_string(wanted) + " bytes from input stream! Read " +
           std::to_string(got);
}

} // namespace Torvo::test
