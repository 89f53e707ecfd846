#include "crypto/SecretKeyImpl.hpp"

#include "arithmetic/elements/Ring.hpp"
#include "context/ContextContent.hpp"
#include "core/Failure.hpp"
#include "core/RequireContext.hpp"
#include "core/SecureWipe.hpp"
#include "crypto/Messages.hpp"
#include "crypto/RandomSampler.hpp"
#include "persistence/CerealAdaptor.hpp"
#include "persistence/Serialize.hpp"
#include "persistence/Verifier.hpp"

#include <algorithm>
#include <utility>

namespace Torvo {

template <EncryptionType E>
SecretKeyImpl<E>::SecretKeyImpl(const Context& context_, Unset)
    : context(requireContext(context_)), coefficients(context_->parameter.rank * context_->parameter.degree),
      sx(context_, context_->parameter.rank, true, true) {
    require(E != EncryptionType::RLWE || context->parameter.rank == 1, message::keyNotOfRankOne);
}

template <EncryptionType E>
SecretKeyImpl<E>::SecretKeyImpl(const Context& context_) : SecretKeyImpl(context_, Unset{}) {
    const KeySampling sampling;
    seed = SeedState::ofThread();
    sample();
}

template <EncryptionType E>
SecretKeyImpl<E>::SecretKeyImpl(const Context& context_, const int* coefficients_)
    : SecretKeyImpl(context_, Unset{}) {
    std::copy_n(coefficients_, coefficients.size(), coefficients.getData());
    deriveSx();
}

template <EncryptionType E>
SecretKeyImpl<E>::SecretKeyImpl(const Context& context_, std::istream& stream)
    : SecretKeyImpl(context_, Unset{}) {
    Serialize::load(stream, detail::CerealAdaptor(*this));
}

template <EncryptionType E>
SecretKeyImpl<E>::SecretKeyImpl(const Context& context_, const std::string& path)
    : SecretKeyImpl(context_, Unset{}) {
    Serialize::load(path, detail::CerealAdaptor(*this));
}

// The swapped copy takes the old content of this key and wipes it.
template <EncryptionType E>
SecretKeyImpl<E>& SecretKeyImpl<E>::operator=(const SecretKeyImpl& other) {
    SecretKeyImpl copy(other);
    std::swap(context, copy.context);
    std::swap(seed, copy.seed);
    std::swap(coefficients, copy.coefficients);
    std::swap(sx, copy.sx);
    return *this;
}

template <EncryptionType E>
SecretKeyImpl<E>::~SecretKeyImpl() {
    wipe();
}

template <EncryptionType E>
void SecretKeyImpl<E>::wipe() noexcept {
    utils::wipe(coefficients);
    for (auto& poly : sx.getPolys()) utils::wipe(poly.getData());
}

template <EncryptionType E>
void SecretKeyImpl<E>::sample() {
    RandomSampler().sampleHWT(coefficients, coefficients.size(), context->parameter.hamming_weight);
    deriveSx();
}

template <EncryptionType E>
void SecretKeyImpl<E>::deriveSx() {
    sx.setSize(context->parameter.rank);
    context->primes.coefficientsToPolyVector(coefficients, sx);
}

template <EncryptionType E>
void SecretKeyImpl<E>::save(std::ostream& stream) const {
    Serialize::save(stream, detail::adapt(*this, detail::SerializeOption::full));
}

template <EncryptionType E>
void SecretKeyImpl<E>::save(const std::string& path) const {
    Serialize::saveSecret(path, detail::adapt(*this, detail::SerializeOption::full));
}

template <EncryptionType E>
void SecretKeyImpl<E>::saveSeedOnly(std::ostream& stream) const {
    require(seed.isRandom(), message::keyNotRandom);
    Serialize::save(stream, detail::adapt(*this, detail::SerializeOption::seedOnly));
}

template <EncryptionType E>
void SecretKeyImpl<E>::saveSeedOnly(const std::string& path) const {
    require(seed.isRandom(), message::keyNotRandom);
    Serialize::saveSecret(path, detail::adapt(*this, detail::SerializeOption::seedOnly));
}

template <EncryptionType E>
void SecretKeyImpl<E>::saveFull(OutputArchive& archive) const {
    archive(encryption_type);
    saveHashAndTag(archive, context->context_hash, ObjectTag::SecretKey);
    archive(seed, coefficients, sx);
}

template <EncryptionType E>
void SecretKeyImpl<E>::saveSeed(OutputArchive& archive) const {
    archive(encryption_type);
    saveTag(archive, ObjectTag::SecretKey);
    seed.saveState(archive);
}

template <EncryptionType E>
void SecretKeyImpl<E>::loadFull(InputArchive& archive) {
    const Ring ring = ringOf(context);
    loadEncryptionType(archive);
    verifyHashAndTag(archive, context->context_hash, ObjectTag::SecretKey);
    archive(seed);
    coefficients.loadSized(archive, {coefficients.size()});
    u64 rank = 0;
    archive(rank);
    verify(rank == sx.getSize());
    for (Polynomial& poly : sx.getPolys()) {
        poly.load(archive, [&](const Polynomial& header) {
            const bool isWhole = header.getLevel() + 1 == header.getNumBase();
            return header.hasPrimesOf(ring) && header.isModUp() && header.isNTT() && isWhole;
        });
        poly.adopt(ring);
    }
}

template <EncryptionType E>
void SecretKeyImpl<E>::loadSeed(InputArchive& archive) {
    loadEncryptionType(archive);
    verifyTag(archive, ObjectTag::SecretKey);
    seed.loadState(archive);
    const BorrowedGenerator generator(seed);
    sample();
}

template <EncryptionType E>
void SecretKeyImpl<E>::loadEncryptionType(InputArchive& archive) const {
    EncryptionType found{};
    archive(found);
    require(found == E, E == EncryptionType::RLWE ? message::savedKeyNotRLWE : message::savedKeyNotMLWE);
}

template class SecretKeyImpl<EncryptionType::RLWE>;
template class SecretKeyImpl<EncryptionType::MLWE>;

} // namespace Torvo
