#include "ring/FileWalk.hpp"

#include "arithmetic/elements/PolyGerm.hpp"
#include "ring/Messages.hpp"

#include <bit>
#include <span>

namespace Torvo {

namespace {

/// So that a file of small ring elements takes no more than seconds, however long it is.
constexpr u64 mostPolynomials = u64{1} << 18;

bool isPossiblePrime(u64 p) {
    return p >= 3 && p % 2 == 1 && p < limit::prime;
}

} // namespace

void FileWalk::throwImpossible(u64 offset) {
    throw Misfit{offset, message::impossibleNumber};
}

void FileWalk::requireMore(u128 byteCount) const {
    const u64 left = file_.size() - at_;
    if (byteCount <= left) return;
    const u128 missing = byteCount - left;
    const u64 told = missing > ~u64{0} ? ~u64{0} : static_cast<u64>(missing);
    throw Misfit{at_, message::endsEarly + std::to_string(told) + message::bytesEarly};
}

void FileWalk::take(char* out, u64 byteCount) {
    requireMore(byteCount);
    // What was there at the opening is gone: the report will tell that the file changed.
    if (!file_.read(at_, out, byteCount)) throw Misfit{at_, message::unreadable};
    at_ += byteCount;
}

bool FileWalk::flag() {
    return number<std::uint8_t>([](std::uint8_t byte) { return byte <= 1; }) == 1;
}

void FileWalk::tag(ObjectTag wanted) {
    expect(static_cast<std::uint32_t>(wanted));
}

void FileWalk::skip(u64 count, u64 width) {
    const u128 byteCount = static_cast<u128>(count) * width;
    requireMore(byteCount);
    at_ += static_cast<u64>(byteCount);
}

u64 FileWalk::array(u64 width) {
    const u64 count = number<u64>();
    skip(count, width);
    return count;
}

void FileWalk::array(u64 width, u64 wanted, u64 other) {
    const u64 count = number<u64>([&](u64 found) { return found == wanted || found == other; });
    skip(count, width);
}

void FileWalk::loadPrimes(Header& header) {
    const u64 start = at_;
    const std::span primes(header.primes.data(), header.numRows);
    take(reinterpret_cast<char*>(primes.data()), primes.size_bytes());
    if (isSwapped_)
        for (u64& p : primes) p = __builtin_bswap64(p);
    if (!std::ranges::all_of(primes, isPossiblePrime)) throwImpossible(start);
}

FileWalk::Header FileWalk::polynomial(Germ germ) {
    if (++polynomialCount_ > mostPolynomials) throw Misfit{at_, message::tooManyElements};
    Header header;
    header.degree = number<u64>([](u64 n) { return std::has_single_bit(n) && n <= limit::degree; });
    const auto isRowCount = [](u64 n) { return 0 < n && n <= limit::rows; };
    header.numBase = number<u64>(isRowCount);
    header.numRows = number<u64>(isRowCount);
    header.level = number<u64>([](u64 n) { return n + 1 != 0; });
    header.modUp = flag();
    header.isNTT = flag();
    require(header.modUp ? header.numBase <= header.numRows && header.level < header.numRows
                         : header.numBase == header.numRows);
    expect(header.numRows);
    loadPrimes(header);
    const bool withoutGerm = number<std::uint8_t>([&](std::uint8_t byte) {
                                 return byte == 1 || (byte == 0 && germ == Germ::Maybe);
                             }) == 1;
    // A polynomial that was once grown from a germ stays at full height whatever its level.
    const u64 live = header.rowEnd(), full = std::max(live, header.numRows);
    if (withoutGerm)
        array(sizeof(u64), countOf(header.degree, live), countOf(header.degree, full));
    else
        skip(1, sizeof(PolyGerm));
    return header;
}

void FileWalk::polynomials(u64 count, Germ germ, Header& expected) {
    for (u64 i = 0; i < count; ++i) {
        const Header found = polynomial(germ);
        if (expected.degree == 0) expected = found;
        require(found == expected);
    }
}

void FileWalk::require(bool condition) const {
    if (!condition) throw Misfit{at_, message::numbersDoNotFit};
}

void FileWalk::requireEnd() const {
    if (!isAtEnd()) throw Misfit{at_, message::goesOn};
}

void FileWalk::requireRest(u64 byteCount) const {
    if (file_.size() - at_ != byteCount) throw Misfit{at_, message::otherLength};
}

} // namespace Torvo
