#pragma once

#include "arithmetic/Polynomial.hpp"
#include "core/Integers.hpp"
#include "persistence/ArchiveForward.hpp"

#include <Torvo/Context.hpp>

namespace Torvo {

/// The record behind a public encryption key: bx + ax * s = e.
class EncryptionKeyImpl {
public:
    explicit EncryptionKeyImpl(const Context& context);

    /// Tag, hash, bx, ax (docs/files.md).
    void save(OutputArchive& archive) const;
    void load(InputArchive& archive);

    Polynomial ax;
    Polynomial bx;
    u64 context_hash;
};

} // namespace Torvo
