#pragma once

#include "arithmetic/elements/PolynomialVector.hpp"
#include "core/Integers.hpp"
#include "encoding/RescaleCounter.hpp"
#include "persistence/ArchiveForward.hpp"

#include <Torvo/Context.hpp>
#include <Torvo/EncodingType.hpp>
#include <Torvo/EncryptionType.hpp>

namespace Torvo {

/// The record behind a ciphertext handle. Level, mod-up state, NTT state and device are not stored but asked
/// of the polynomials.
template <EncryptionType E>
class CiphertextImpl {
public:
    explicit CiphertextImpl(PolynomialVector&& polys);
    CiphertextImpl(const Context& context, const CiphertextImpl& other);

    void setNumPoly(u64 n);
    void setRescaleCounter(int r);

    /// Hash, tag, log slots, counter, encoding type, polynomials (docs/files.md).
    void save(OutputArchive& archive) const;
    void load(InputArchive& archive);

    Context context;
    u64 log_slots;
    RescaleCounter rescale_counter;
    EncodingType encoding_type = EncodingType::Slot;
    PolynomialVector polys;
};

} // namespace Torvo
