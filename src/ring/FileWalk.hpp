#pragma once

#include "core/Integers.hpp"
#include "persistence/Limits.hpp"
#include "persistence/RegularFile.hpp"
#include "persistence/Verifier.hpp"

#include <algorithm>
#include <array>
#include <cstddef>
#include <string>

namespace Torvo {

/// Why a file is not of the kind that a walk took it for.
struct Misfit {
    u64 offset;
    std::string reason;
};

/// Goes through a file as a load does, but reads nothing except the numbers between the data. Each is read by
/// itself and looked at before the next: the file may be of another kind, and a secret lie where a number of
/// this kind would. Holds no more than the header of one polynomial, whatever the file says.
class FileWalk {
public:
    /// The numbers in front of the data of a polynomial.
    struct Header {
        u64 degree = 0, numBase = 0, numRows = 0, level = 0;
        bool modUp = false, isNTT = false;
        std::array<u64, limit::rows> primes{}; ///< `numRows` of them, behind which are zeros

        /// Live rows.
        u64 rowEnd() const { return modUp ? numRows : level + 1; }
        /// Whether it is that of a part of a switching key or of a secret key: in NTT form, mod-up and at the
        /// top.
        bool isOfKey() const { return modUp && isNTT && level + 1 == numBase; }
        friend bool operator==(const Header&, const Header&) = default;
    };

    /// @param isSwapped  whether the numbers are of the other byte order
    FileWalk(const RegularFile& file, bool isSwapped) : file_(file), isSwapped_(isSwapped) {}

    /// The next number.
    /// @throws Misfit when the file ends before
    template <class T>
    T number() {
        T value{};
        std::array<char, sizeof(T)> bytes{};
        take(bytes.data(), bytes.size());
        if (isSwapped_) std::reverse(bytes.begin(), bytes.end());
        std::copy(bytes.begin(), bytes.end(), reinterpret_cast<char*>(&value));
        return value;
    }
    /// A number that `isTaken`.
    /// @throws Misfit also for another one
    template <class T, class IsTaken>
    T number(IsTaken&& isTaken) {
        const u64 start = at_;
        const T value = number<T>();
        if (!isTaken(value)) throwImpossible(start);
        return value;
    }
    template <class T>
    void expect(T wanted) {
        number<T>([&](T found) { return found == wanted; });
    }
    bool flag();
    void tag(ObjectTag wanted);
    /// Passes over `count` elements of `width` bytes.
    void skip(u64 count, u64 width);
    /// The count of an array, which is passed over.
    u64 array(u64 width);
    /// One whose count is `wanted`, or `other`.
    void array(u64 width, u64 wanted, u64 other);
    /// A polynomial up to its end.
    enum class Germ { No, Maybe };
    Header polynomial(Germ germ);
    /// `count` polynomials of one shape, which `expected` has; where its degree is 0, the first one gives it.
    void polynomials(u64 count, Germ germ, Header& expected);

    /// @throws Misfit, at what was read last, unless the condition holds
    void require(bool condition) const;
    /// @throws Misfit unless the file ends here
    void requireEnd() const;
    /// @throws Misfit unless `byteCount` more bytes are all that is left
    void requireRest(u64 byteCount) const;
    u64 position() const { return at_; }
    bool isAtEnd() const { return at_ == file_.size(); }

private:
    void take(char* out, u64 byteCount);
    void loadPrimes(Header& header);
    void requireMore(u128 byteCount) const;
    [[noreturn]] static void throwImpossible(u64 offset);

    const RegularFile& file_;
    bool isSwapped_;
    u64 at_ = 1; ///< behind the frame
    u64 polynomialCount_ = 0;
};

} // namespace Torvo
