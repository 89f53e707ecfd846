#include "persistence/Verifier.hpp"

#include "persistence/Archive.hpp"

namespace Torvo {

void saveTag(OutputArchive& archive, ObjectTag tag) {
    archive(tag);
}

void verifyTag(InputArchive& archive, ObjectTag tag) {
    ObjectTag found{};
    archive(found);
    verify(found == tag);
}

void saveHashAndTag(OutputArchive& archive, u64 context_hash, ObjectTag tag) {
    archive(context_hash, tag);
}

void verifyHashAndTag(InputArchive& archive, u64 context_hash, ObjectTag tag) {
    u64 foundHash = 0;
    ObjectTag foundTag{};
    archive(foundHash, foundTag);
    verify(foundHash == context_hash && foundTag == tag);
}

} // namespace Torvo
