#pragma once

#include "arithmetic/elements/Polynomial.hpp"
#include "core/Integers.hpp"
#include "persistence/ArchiveForward.hpp"

#include <Torvo/Context.hpp>
#include <Torvo/SecretKey.hpp>

namespace Torvo {

/// The record behind a public encryption key: bx + ax * s = e.
class EncryptionKeyImpl {
public:
    /// At the top level, data unset.
    explicit EncryptionKeyImpl(const Context& context);
    /// Draws ax from a fresh germ, then e, from the calling thread's generator. The key has the rows of the
    /// encryption level only.
    EncryptionKeyImpl(const Context& context, const SecretKey& secretKey);

    /// Tag, hash, bx, ax (docs/files.md). Loading stores the hash of the file, and refuses other rings and
    /// shapes.
    void save(OutputArchive& archive) const;
    void load(InputArchive& archive);
    /// Loads a key that replaces this one: refuses another hash too.
    void loadOwn(InputArchive& archive);

    Context context;
    Polynomial ax; ///< stays at full height whatever its level: it was grown so from its germ
    Polynomial bx;
    u64 context_hash;

private:
    void loadParts(InputArchive& archive);
};

} // namespace Torvo
