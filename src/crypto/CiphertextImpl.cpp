#include "crypto/CiphertextImpl.hpp"

#include "arithmetic/elements/Ring.hpp"
#include "core/Failure.hpp"
#include "crypto/Messages.hpp"
#include "encoding/Messages.hpp"
#include "persistence/Archive.hpp"
#include "persistence/Verifier.hpp"

#include <utility>

namespace Torvo {

namespace {

bool haveSameShape(const Polynomial& a, const Polynomial& b) {
    return a.getNumBase() == b.getNumBase() && a.getLevel() == b.getLevel() && a.isModUp() == b.isModUp() &&
           a.isNTT() == b.isNTT();
}

} // namespace

template <EncryptionType E>
CiphertextImpl<E>::CiphertextImpl(PolynomialVector&& elements)
    : context(elements.getContext()), log_slots(getLogFullSlots(context)), polys(std::move(elements)) {
    require((getRank(context) == 1) == (E == EncryptionType::RLWE), message::ciphertextOfOtherType);
}

template <EncryptionType E>
CiphertextImpl<E>::CiphertextImpl(const Context& ring, const CiphertextImpl& other)
    : context(ring), log_slots(other.log_slots), encoding_type(other.encoding_type),
      polys(ring, other.polys.getSize(), other.polys.isModUp(), other.polys.isNTT()) {
    setNumPoly(other.polys.getSize());
    const u64 level = other.polys.getLevel();
    require(level < ringOf(ring).numBase, message::ciphertextDoesNotFit);
    polys.setLevel(level);
    polys.to(other.polys.getDevice());
    for (u64 i = 0; i < polys.getSize(); ++i) {
        const auto& from = other.polys.getPoly(i).getData();
        auto& to = polys.getPoly(i).getData();
        // A ring of another degree: the rows would not fit either.
        require(from.size() == to.size(), message::ciphertextDoesNotFit);
        to.copyDataFrom(from);
    }
    setRescaleCounter(other.rescale_counter.getValue());
}

template <EncryptionType E>
void CiphertextImpl<E>::setNumPoly(u64 n) {
    require(n > 1, message::ciphertextTooSmall);
    polys.getPolys().resize(n, polys.getPoly(0));
}

template <EncryptionType E>
void CiphertextImpl<E>::setRescaleCounter(int r) {
    require(r <= static_cast<int>(polys.getLevel()), message::rescaleCounterAboveLevel);
    rescale_counter.setValue(r);
}

template <EncryptionType E>
void CiphertextImpl<E>::save(OutputArchive& archive) const {
    saveHashAndTag(archive, ringOf(context).context_hash, ObjectTag::Ciphertext);
    archive(log_slots, rescale_counter.getValue(), encoding_type, polys);
}

template <EncryptionType E>
void CiphertextImpl<E>::load(InputArchive& archive) {
    verifyHashAndTag(archive, ringOf(context).context_hash, ObjectTag::Ciphertext);
    int counter = 0;
    archive(log_slots, counter, encoding_type);
    verify(counter >= 0);
    verify(encoding_type == EncodingType::Slot || encoding_type == EncodingType::Coefficient);
    rescale_counter.setValue(counter);
    archive(polys);
    verify(polys.getSize() > 1);
    for (const Polynomial& poly : polys.getPolys()) verify(haveSameShape(poly, polys.getPoly(0)));
}

template class CiphertextImpl<EncryptionType::RLWE>;
template class CiphertextImpl<EncryptionType::MLWE>;

} // namespace Torvo
