#pragma once

#include "core/Integers.hpp"

#include <cereal/archives/portable_binary.hpp>

#include <algorithm>
#include <istream>
#include <streambuf>
#include <string>
#include <utility>

namespace Torvo::detail {

/// Passes reads through to another buffer and counts the bytes, so that a field read in pieces can still
/// report how much of the whole it got.
class CountingBuffer : public std::streambuf {
public:
    explicit CountingBuffer(std::streambuf& source) : source_(source) {}
    u64 count() const { return count_; }

protected:
    std::streamsize xsgetn(char* out, std::streamsize byteCount) override {
        const std::streamsize got = source_.sgetn(out, byteCount);
        count_ += static_cast<u64>(std::max<std::streamsize>(got, 0));
        return got;
    }

private:
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

/// Reads `count` elements of `T` (whose scalars are `Scalar`) in pieces of at most a mebibyte: before each
/// piece `grow(n)` makes room for n elements in all and returns the array. So a forged count costs no more
/// memory than the stream has bytes for. `archive` is a `CountedInputArchive`.
/// @throws cereal::Exception "Failed to read <wanted> bytes from input stream! Read <got>", of the whole
/// field
template <class T, class Scalar = T, class Grow>
void readPieces(cereal::PortableBinaryInputArchive& archive, u64 count, Grow&& grow) {
    constexpr u64 pieceLength = (u64{1} << 20) / sizeof(T);
    const auto& counted = dynamic_cast<const CountedInputArchive&>(archive);
    const u64 start = counted.bytesRead();
    try {
        for (u64 done = 0; done < count;) {
            const u64 piece = std::min(pieceLength, count - done);
            T* data = grow(done + piece);
            archive.template loadBinary<sizeof(Scalar)>(data + done,
                                                        static_cast<std::streamsize>(piece * sizeof(T)));
            done += piece;
        }
    } catch (const cereal::Exception&) {
        throw cereal::Exception("Failed to read " + std::to_string(count * sizeof(T)) +
                                " bytes from input stream! Read " +
                                std::to_string(counted.bytesRead() - start));
    }
}

} // namespace Torvo::detail
