#pragma once

#include "core/Failure.hpp"
#include "core/Integers.hpp"
#include "persistence/ArchiveForward.hpp"
#include "persistence/Messages.hpp"

#include <cstdint>

namespace Torvo {

// GCC before 13 takes these for declarations that shadow the aliases of the same names.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wshadow"
/// What kind of object a file holds. The numbers are part of the file formats.
enum class ObjectTag : std::uint32_t {
    EncryptionKey = 0,
    EvaluationKey = 1,
    SecretKey = 2,
    Ciphertext = 3,
    Plaintext = 4,
    CompactCiphertext = 5,
    BootConstants = 6,
    ChebyshevSeries = 7,
    EncodedTransform = 8,
    LinearTransform = 9,
};
#pragma GCC diagnostic pop

/// Refuses the content of an archive unless `condition` holds.
/// @throws RuntimeException "[Verifier::load] Validation failed during deserializing objects."
inline void verify(bool condition) {
    require(condition, message::notVerified);
}

/// a * b; if it does not fit a word, the largest word, which is not the size of any array.
inline u64 countOf(u64 a, u64 b) {
    const u128 product = static_cast<u128>(a) * b;
    return product > ~u64{0} ? ~u64{0} : static_cast<u64>(product);
}

/// The u32 tag at the head of an object.
void saveTag(OutputArchive& archive, ObjectTag tag);
/// @throws as `verify`, on another tag
void verifyTag(InputArchive& archive, ObjectTag tag);

/// The head of an object that belongs to a context: u64 context hash, then the tag.
void saveHashAndTag(OutputArchive& archive, u64 context_hash, ObjectTag tag);
/// @throws as `verify`, on another hash or tag
void verifyHashAndTag(InputArchive& archive, u64 context_hash, ObjectTag tag);

} // namespace Torvo
