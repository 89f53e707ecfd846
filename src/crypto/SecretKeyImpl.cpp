#include "crypto/SecretKeyImpl.hpp"

#include "context/ContextContent.hpp"
#include "core/Failure.hpp"
#include "core/SecureWipe.hpp"
#include "crypto/Messages.hpp"
#include "crypto/RandomSampler.hpp"
#include "crypto/UniformRandomBitGenerator.hpp"
#include "persistence/CerealAdaptor.hpp"
#include "persistence/Serialize.hpp"
#include "persistence/Verifier.hpp"

#include <algorithm>
#include <utility>

namespace Torvo {

namespace {

/// While it lives, the calling thread draws from the stored state; then it goes on where it stood.
class BorrowedGenerator {
public:
    explicit BorrowedGenerator(const std::string& state) : previous_(threadGenerator().getState()) {
        threadGenerator().setState(state);
    }
    ~BorrowedGenerator() {
        threadGenerator().setState(previous_);
        utils::wipe(previous_.data(), previous_.size());
    }
    BorrowedGenerator(const BorrowedGenerator&) = delete;
    BorrowedGenerator& operator=(const BorrowedGenerator&) = delete;

private:
    std::string previous_;
};

template <class T>
void wipeArray(DeviceSpecificArray<T>& array) noexcept {
    if (array.getDevice().type == DeviceType::CPU) utils::wipe(array.getData(), array.capacityInBytes());
}

void saveState(OutputArchive& archive, const std::string& state) {
    archive(static_cast<u64>(state.size()));
    archive(cereal::binary_data(state.data(), state.size()));
}

template <EncryptionType E>
auto adapt(const SecretKeyImpl<E>& key, int option) {
    return detail::CerealAdaptor<const SecretKeyImpl<E>>(key, option);
}

} // namespace

template <EncryptionType E>
SecretKeyImpl<E>::SecretKeyImpl(const Context& context_, Unset)
    : context(context_), coefficients(context_->parameter.rank * context_->parameter.degree),
      sx(context_, context_->parameter.rank, true, true) {
    require(E != EncryptionType::RLWE || context->parameter.rank == 1, message::keyNotOfRankOne);
}

template <EncryptionType E>
SecretKeyImpl<E>::SecretKeyImpl(const Context& context_) : SecretKeyImpl(context_, Unset{}) {
    is_random = true;
    rng_state = threadGenerator().getState();
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

// The copy takes away, and wipes, what this key held.
template <EncryptionType E>
SecretKeyImpl<E>& SecretKeyImpl<E>::operator=(const SecretKeyImpl& other) {
    SecretKeyImpl copy(other);
    std::swap(context, copy.context);
    std::swap(is_random, copy.is_random);
    std::swap(rng_state, copy.rng_state);
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
    utils::wipe(rng_state.data(), rng_state.size());
    wipeArray(coefficients);
    for (auto& poly : sx.getPolys()) wipeArray(poly.getData());
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
    Serialize::save(stream, adapt(*this, detail::SerializeOption::full));
}

template <EncryptionType E>
void SecretKeyImpl<E>::save(const std::string& path) const {
    Serialize::save(path, adapt(*this, detail::SerializeOption::full));
}

template <EncryptionType E>
void SecretKeyImpl<E>::saveSeedOnly(std::ostream& stream) const {
    require(is_random, message::keyNotRandom);
    Serialize::save(stream, adapt(*this, detail::SerializeOption::seedOnly));
}

template <EncryptionType E>
void SecretKeyImpl<E>::saveSeedOnly(const std::string& path) const {
    require(is_random, message::keyNotRandom);
    Serialize::save(path, adapt(*this, detail::SerializeOption::seedOnly));
}

template <EncryptionType E>
void SecretKeyImpl<E>::saveFull(OutputArchive& archive) const {
    archive(encryption_type);
    saveHashAndTag(archive, context->context_hash, ObjectTag::SecretKey);
    archive(detail::Flag(is_random));
    saveState(archive, rng_state);
    archive(coefficients, sx);
}

template <EncryptionType E>
void SecretKeyImpl<E>::saveSeed(OutputArchive& archive) const {
    archive(encryption_type);
    saveTag(archive, ObjectTag::SecretKey);
    saveState(archive, rng_state);
}

template <EncryptionType E>
void SecretKeyImpl<E>::loadFull(InputArchive& archive) {
    const u64 size = coefficients.size(), rank = sx.getSize();
    loadEncryptionType(archive);
    verifyHashAndTag(archive, context->context_hash, ObjectTag::SecretKey);
    archive(detail::Flag(is_random));
    loadState(archive, true);
    archive(coefficients);
    verify(coefficients.size() == size);
    archive(sx);
    verify(sx.getSize() == rank && sx.isModUp() && sx.isNTT());
}

template <EncryptionType E>
void SecretKeyImpl<E>::loadSeed(InputArchive& archive) {
    loadEncryptionType(archive);
    verifyTag(archive, ObjectTag::SecretKey);
    loadState(archive, false);
    is_random = true;
    const BorrowedGenerator generator(rng_state);
    sample();
}

template <EncryptionType E>
void SecretKeyImpl<E>::loadEncryptionType(InputArchive& archive) const {
    EncryptionType found{};
    archive(found);
    require(found == E, E == EncryptionType::RLWE ? message::savedKeyNotRLWE : message::savedKeyNotMLWE);
}

template <EncryptionType E>
void SecretKeyImpl<E>::loadState(InputArchive& archive, bool mayBeEmpty) {
    u64 length = 0;
    archive(length);
    verify(length == UniformRandomBitGenerator::stateBytes || (mayBeEmpty && length == 0));
    rng_state.resize(length);
    archive(cereal::binary_data(rng_state.data(), length));
}

template class SecretKeyImpl<EncryptionType::RLWE>;
template class SecretKeyImpl<EncryptionType::MLWE>;

} // namespace Torvo
