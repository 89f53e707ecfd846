#pragma once

#include "core/Integers.hpp"

#include <array>
#include <optional>
#include <type_traits>

namespace Torvo {

class Polynomial;

/// The seed of 1024 bytes from which a uniform polynomial can be regenerated, word for word, for a given list
/// of primes and with any number of threads.
class PolyGerm {
public:
    /// Filled from the calling thread's random generator.
    PolyGerm();
    /// Of given words, as read from an archive.
    explicit PolyGerm(const std::array<u64, 128>& words) : words_(words) {}

    // Written out, so that an optional germ is copied only if there is one: a compiler-made copy of an empty
    // one would copy the previous content of the stack, which may be words of a secret.
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

/// Makes `poly` uniform modulo the prime of every row, from its germ alone; with `fresh`, from a new germ.
/// The polynomial gets data at full height (degree * numRows words). Level and flags stay as the caller set
/// them, and so the polynomial is uniform in the domain that the flags name.
/// @throws std::bad_optional_access when not `fresh` and there is no germ
void populateUniformPoly(Polynomial& poly, bool fresh);
/// The same words out of its germ, of the rows up to the level alone: memory and time of the rows that are
/// used.
/// @throws std::bad_optional_access when there is no germ
void populateLiveRows(Polynomial& poly);

} // namespace Torvo
