#include "lwe/LWESecretKeyImpl.hpp"

#include "context/LWEContextContent.hpp"
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

namespace Torvo::LWE {

SecretKeyImpl::SecretKeyImpl(const Context& chain, Unset)
    : context(requireContext(chain)), coefficients(chain->parameter.dimension), sx(chain) {}

SecretKeyImpl::SecretKeyImpl(const Context& chain) : SecretKeyImpl(chain, Unset{}) {
    const KeySampling sampling;
    seed = SeedState::ofThread();
    sample();
}

SecretKeyImpl::SecretKeyImpl(const Context& chain, const int* given) : SecretKeyImpl(chain, Unset{}) {
    std::copy_n(given, coefficients.size(), coefficients.getData());
    deriveSx();
}

SecretKeyImpl::SecretKeyImpl(const Context& chain, std::istream& stream) : SecretKeyImpl(chain, Unset{}) {
    Serialize::load(stream, detail::CerealAdaptor(*this));
}

SecretKeyImpl::SecretKeyImpl(const Context& chain, const std::string& path) : SecretKeyImpl(chain, Unset{}) {
    Serialize::load(path, detail::CerealAdaptor(*this));
}

// The swapped copy takes the old content of this key and wipes it.
SecretKeyImpl& SecretKeyImpl::operator=(const SecretKeyImpl& other) {
    SecretKeyImpl copy(other);
    std::swap(context, copy.context);
    std::swap(seed, copy.seed);
    std::swap(coefficients, copy.coefficients);
    std::swap(sx, copy.sx);
    return *this;
}

SecretKeyImpl::~SecretKeyImpl() {
    utils::wipe(coefficients);
    utils::wipe(sx.getData());
}

void SecretKeyImpl::sample() {
    RandomSampler().sampleHWT(coefficients, coefficients.size(), context->parameter.hamming_weight);
    deriveSx();
}

void SecretKeyImpl::deriveSx() {
    context->primes.coefficientsToLevelledVector(coefficients, sx);
}

void SecretKeyImpl::save(std::ostream& stream) const {
    Serialize::save(stream, detail::adapt(*this, detail::SerializeOption::full));
}

void SecretKeyImpl::save(const std::string& path) const {
    Serialize::saveSecret(path, detail::adapt(*this, detail::SerializeOption::full));
}

void SecretKeyImpl::saveSeedOnly(std::ostream& stream) const {
    require(seed.isRandom(), message::keyNotRandom);
    Serialize::save(stream, detail::adapt(*this, detail::SerializeOption::seedOnly));
}

void SecretKeyImpl::saveSeedOnly(const std::string& path) const {
    require(seed.isRandom(), message::keyNotRandom);
    Serialize::saveSecret(path, detail::adapt(*this, detail::SerializeOption::seedOnly));
}

void SecretKeyImpl::saveFull(OutputArchive& archive) const {
    saveHashAndTag(archive, context->context_hash, ObjectTag::SecretKey);
    archive(seed, coefficients, sx);
}

void SecretKeyImpl::saveSeed(OutputArchive& archive) const {
    saveTag(archive, ObjectTag::SecretKey);
    seed.saveState(archive);
}

void SecretKeyImpl::loadFull(InputArchive& archive) {
    const Parameter& parameter = context->parameter;
    verifyHashAndTag(archive, context->context_hash, ObjectTag::SecretKey);
    archive(seed);
    coefficients.loadSized(archive, {parameter.dimension});
    sx.loadSized(archive, parameter.dimension);
    verify(sx.getLevel() + 1 == parameter.chain_length);
}

void SecretKeyImpl::loadSeed(InputArchive& archive) {
    verifyTag(archive, ObjectTag::SecretKey);
    seed.loadState(archive);
    const BorrowedGenerator generator(seed);
    sample();
}

} // namespace Torvo::LWE
