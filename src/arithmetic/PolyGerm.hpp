#pragma once

#include "core/Integers.hpp"

#include <array>

namespace Torvo {

class Polynomial;

/// The seed of 1024 bytes from which a uniform polynomial can be regrown, word for word, for a given list of
/// primes and with any number of threads.
class PolyGerm {
public:
    /// Filled from the calling thread's random generator.
    PolyGerm();
    /// Of given words, as read from an archive.
    explicit PolyGerm(const std::array<u64, 128>& words) : words_(words) {}

    const std::array<u64, 128>& getWords() const { return words_; }

    friend bool operator==(const PolyGerm&, const PolyGerm&) = default;

private:
    std::array<u64, 128> words_;
};

/// Makes `poly` uniform modulo the prime of every row, out of its germ alone; with `fresh`, out of a new one.
/// The polynomial gets data at full height (degree * numRows words); level and flags stay as the caller set
/// them, and it is uniform in whichever domain the caller declares.
/// @throws std::bad_optional_access when not `fresh` and there is no germ
void populateUniformPoly(Polynomial& poly, bool fresh);

} // namespace Torvo
