#pragma once

#include "core/Integers.hpp"

#include <array>
#include <optional>
#include <type_traits>

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

    // Written out, so that an optional germ is copied only where there is one: what a compiler copies of an
    // empty one is what the stack held there before, words of a secret for all it knows.
    PolyGerm(const PolyGerm& other) noexcept : words_(other.words_) {}
    PolyGerm& operator=(const PolyGerm& other) noexcept {
        words_ = other.words_;
        return *this;
    }

    const std::array<u64, 128>& getWords() const { return words_; }

    friend bool operator==(const PolyGerm&, const PolyGerm&) = default;

private:
    std::array<u64, 128> words_;
};

static_assert(!std::is_trivially_copyable_v<std::optional<PolyGerm>>);

/// Makes `poly` uniform modulo the prime of every row, out of its germ alone; with `fresh`, out of a new one.
/// The polynomial gets data at full height (degree * numRows words); level and flags stay as the caller set
/// them, and it is uniform in whichever domain the caller declares.
/// @throws std::bad_optional_access when not `fresh` and there is no germ
void populateUniformPoly(Polynomial& poly, bool fresh);

} // namespace Torvo
