#pragma once

#include "arithmetic/elements/LevelledElement.hpp"
#include "arithmetic/elements/LevelledVector.hpp"
#include "core/Integers.hpp"
#include "encoding/RescaleCounter.hpp"
#include "persistence/ArchiveForward.hpp"

#include <Torvo/LWECiphertext.hpp>

namespace Torvo::LWE {

/// The record behind a ciphertext handle. Level and device are not stored: they are those of `ax`.
class CiphertextImpl {
public:
    /// Zeros, at the top level.
    explicit CiphertextImpl(const Context& context);

    void setLevel(u64 level);
    void setRescaleCounter(int r);

    /// Hash, tag, counter, `ax`, `bx` (docs/files.md).
    void save(OutputArchive& archive) const;
    void load(InputArchive& archive);

    Context context;
    RescaleCounter rescale_counter;
    LevelledVector ax;
    LevelledElement bx;
};

/// Makes `out` an object of `context`. If it already is one, or one of a context with the same primes and
/// dimension, it keeps its storage and content.
void shapeOutput(const Context& context, Ciphertext& out);

/// Refuses a ciphertext at a level that the chain of `context`, or its own, does not have, and one of other
/// primes. Dimensions are compared by the operations on two vectors.
/// @throws RuntimeException "Operands are not of the ring of the generated context."
void requireOfChain(const Context& context, const Ciphertext& operand);

} // namespace Torvo::LWE
