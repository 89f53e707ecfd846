#pragma once

#include "core/Integers.hpp"
#include "persistence/Verifier.hpp"

#include <cereal/archives/portable_binary.hpp>

#include <algorithm>
#include <cstdint>
#include <istream>
#include <streambuf>
#include <string>

namespace Torvo::detail {

/// Passes reads through to another buffer and counts the bytes, so that a field read in pieces can still
/// report how much of the whole it got. A file that cannot be read, such as an opened directory, counts as
/// ended: the archive sees a short read like any other.
class CountingBuffer : public std::streambuf {
public:
    explicit CountingBuffer(std::streambuf& source) : source_(source) {}
    u64 count() const { return count_; }

protected:
    std::streamsize xsgetn(char* out, std::streamsize byteCount) override {
        const std::streamsize got = readSource(out, byteCount);
        count_ += static_cast<u64>(std::max<std::streamsize>(got, 0));
        return got;
    }

private:
    std::streamsize readSource(char* out, std::streamsize byteCount) {
        try {
            return source_.sgetn(out, byteCount);
        } catch (const std::ios_base::failure&) {
            return 0;
        }
    }

    std::streambuf& source_;
    u64 count_ = 0;
};

/// An input archive that knows how much it has read.
class CountedInputArchive : private CountingBuffer,
                            private std::istream,
                            public cereal::PortableBinaryInputArchive {
public:
    explicit CountedInputArchive(std::istream& stream)
        : CountingBuffer(*stream.rdbuf()), std::istream(static_cast<CountingBuffer*>(this)),
          cereal::PortableBinaryInputArchive(static_cast<std::istream&>(*this)) {}
    u64 bytesRead() const { return CountingBuffer::count(); }
};

/// Throws cereal's exception for a short read, for fields whose length in bytes may exceed a word.
[[noreturn]] void throwShortRead(u128 wanted, u64 got);

/// Refuses a file that has `left` bytes more after the `read` bytes of the object.
void requireEnd(const std::string& path, u64 read, std::streamsize left);

/// Reads `count` elements of `T` (whose scalars are `Scalar`) in pieces: one mebibyte first, then as much as
/// has been read already. Before each piece `grow(n)` makes room for n elements in all and returns the array.
/// So a forged count costs at most twice the memory of the bytes in the stream, and one mebibyte. `archive`
/// is a `CountedInputArchive`.
/// @throws cereal::Exception "Failed to read <wanted> bytes from input stream! Read <got>", of the whole
///         field
template <class T, class Scalar = T, class Grow>
void readPieces(cereal::PortableBinaryInputArchive& archive, u64 count, Grow&& grow) {
    constexpr u64 firstPiece = (u64{1} << 20) / sizeof(T);
    const auto& counted = dynamic_cast<const CountedInputArchive&>(archive);
    const u64 start = counted.bytesRead();
    try {
        for (u64 done = 0; done < count;) {
            const u64 piece = std::min(std::max(firstPiece, done), count - done);
            T* data = grow(done + piece);
            archive.template loadBinary<sizeof(Scalar)>(data + done,
                                                        static_cast<std::streamsize>(piece * sizeof(T)));
            done += piece;
        }
    } catch (const cereal::Exception&) {
        throwShortRead(static_cast<u128>(count) * sizeof(T), counted.bytesRead() - start);
    }
}

/// A bool as an archive field of one byte. Reading accepts only the bytes 0 and 1, the valid values of a
/// bool.
template <class Bool>
class Flag {
public:
    explicit Flag(Bool& value) : value_(&value) {}

    template <class Archive>
    void save(Archive& archive) const {
        archive(static_cast<std::uint8_t>(*value_));
    }
    template <class Archive>
    void load(Archive& archive) {
        std::uint8_t byte = 0;
        archive(byte);
        verify(byte <= 1);
        *value_ = byte == 1;
    }

private:
    Bool* value_;
};

} // namespace Torvo::detail
