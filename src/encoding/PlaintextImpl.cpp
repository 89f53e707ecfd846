#include "encoding/PlaintextImpl.hpp"

#include "arithmetic/elements/Ring.hpp"
#include "persistence/Archive.hpp"
#include "persistence/Verifier.hpp"

#include <utility>

namespace Torvo {

PlaintextImpl::PlaintextImpl(const Context& ring, Polynomial&& polynomial)
    : context(ring), log_slots(getLogFullSlots(ring)), mx(std::move(polynomial)) {}

void PlaintextImpl::save(OutputArchive& archive) const {
    saveHashAndTag(archive, ringOf(context).context_hash, ObjectTag::Plaintext);
    archive(log_slots, rescale_counter.getValue(), mx);
}

void PlaintextImpl::load(InputArchive& archive) {
    const Ring ring = ringOf(context);
    verifyHashAndTag(archive, ring.context_hash, ObjectTag::Plaintext);
    int counter = 0;
    archive(log_slots, counter);
    verify(counter >= 0);
    rescale_counter.setValue(counter);
    mx.load(archive, ring);
}

} // namespace Torvo
