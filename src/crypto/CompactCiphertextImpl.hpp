#pragma once

#include "arithmetic/elements/PolyGerm.hpp"
#include "arithmetic/elements/Polynomial.hpp"
#include "core/Integers.hpp"
#include "encoding/RescaleCounter.hpp"
#include "persistence/ArchiveForward.hpp"

#include <Torvo/Ciphertext.hpp>
#include <Torvo/Context.hpp>

#include <optional>

namespace Torvo {

/// The record behind a compact ciphertext: the element with the message, and what the uniform one grows
/// from. Both elements are in NTT form and not mod-up.
class CompactCiphertextImpl {
public:
    /// Empty.
    explicit CompactCiphertextImpl(const Context& context);
    /// Of a fresh encryption whose uniform element was grown from the germ that it carries.
    explicit CompactCiphertextImpl(Ciphertext&& encrypted);

    Ciphertext expand() const;

    /// Hash, tag, log slots, counter, germ, the element with the message (docs/files.md).
    void save(OutputArchive& archive) const;
    /// Grows nothing: what comes is held to the ring of the context before memory is taken by it. Where the
    /// load fails, nothing has changed.
    void load(InputArchive& archive);

    Context context;
    u64 log_slots;
    RescaleCounter rescale_counter;
    std::optional<PolyGerm> germ; ///< none: the object is empty
    Polynomial b;                 ///< exactly the rows of its level
};

} // namespace Torvo
