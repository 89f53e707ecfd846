#include "crypto/CompactCiphertextImpl.hpp"

#include "arithmetic/elements/PolynomialVector.hpp"
#include "arithmetic/elements/Ring.hpp"
#include "core/Failure.hpp"
#include "core/RequireContext.hpp"
#include "crypto/Messages.hpp"
#include "persistence/Archive.hpp"
#include "persistence/Verifier.hpp"

#include <cereal/types/array.hpp>

#include <array>
#include <utility>

namespace Torvo {

CompactCiphertextImpl::CompactCiphertextImpl(const Context& ring)
    : context(requireContext(ring)), log_slots(getLogFullSlots(context)) {
    require(getRank(context) == 1, message::ciphertextOfOtherType);
}

CompactCiphertextImpl::CompactCiphertextImpl(Ciphertext&& encrypted)
    : context(encrypted.getContext()), log_slots(encrypted.getLogSlots()),
      germ(encrypted.getPoly(1).getGerm().value()), b(std::move(encrypted.getPoly(0))) {
    rescale_counter.setValue(encrypted.getRescaleCounter());
}

Ciphertext CompactCiphertextImpl::expand() const {
    require(germ.has_value(), message::compactCiphertextEmpty);
    Polynomial a = b.sameShape();
    a.setGerm(*germ);
    populateLiveRows(a);
    a.disableGerm(); // operations on the ciphertext would not know that the words had one
    a.to(b.getDevice());
    PolynomialVector elements(context, 0, false, true);
    elements.getPolys().push_back(b);
    elements.getPolys().push_back(std::move(a));
    Ciphertext expanded(std::move(elements));
    expanded.setLogSlots(log_slots);
    expanded.setRescaleCounter(rescale_counter.getValue());
    return expanded;
}

void CompactCiphertextImpl::save(OutputArchive& archive) const {
    require(germ.has_value(), message::compactCiphertextEmpty);
    saveHashAndTag(archive, ringOf(context).context_hash, ObjectTag::CompactCiphertext);
    archive(log_slots, rescale_counter.getValue(), germ->getWords(), b);
}

void CompactCiphertextImpl::load(InputArchive& archive) {
    const Ring ring = ringOf(context);
    verifyHashAndTag(archive, ring.context_hash, ObjectTag::CompactCiphertext);
    CompactCiphertextImpl loaded(context);
    int counter = 0;
    std::array<u64, 128> words{};
    archive(loaded.log_slots, counter, words);
    verify(counter >= 0);
    loaded.rescale_counter.setValue(counter);
    loaded.germ.emplace(words);
    loaded.b.load(archive, [&](const Polynomial& poly) {
        return poly.hasShapeOf(ring) && !poly.isModUp() && poly.isNTT() && poly.getLevel() < ring.numBase &&
               static_cast<u64>(counter) <= poly.getLevel();
    });
    verify(loaded.b.getData().size() == ring.degree * loaded.b.rowEnd());
    *this = std::move(loaded);
}

} // namespace Torvo
