#include "crypto/SeedState.hpp"

#include "core/SecureWipe.hpp"
#include "persistence/Archive.hpp"
#include "persistence/Verifier.hpp"

#include <utility>

namespace Torvo {

SeedState SeedState::ofThread() {
    SeedState seed;
    seed.isRandom_ = true;
    seed.state_ = threadGenerator().getState();
    return seed;
}

SeedState::SeedState(SeedState&& other) noexcept : isRandom_(std::exchange(other.isRandom_, false)) {
    state_.swap(other.state_);
}

// The argument takes the old content and wipes it.
SeedState& SeedState::operator=(SeedState other) noexcept {
    std::swap(isRandom_, other.isRandom_);
    state_.swap(other.state_);
    return *this;
}

SeedState::~SeedState() {
    utils::wipe(state_.data(), state_.size());
}

void SeedState::save(OutputArchive& archive) const {
    archive(detail::Flag(isRandom_));
    saveState(archive);
}

void SeedState::saveState(OutputArchive& archive) const {
    archive(static_cast<u64>(state_.size()));
    archive(cereal::binary_data(state_.data(), state_.size()));
}

void SeedState::load(InputArchive& archive) {
    archive(detail::Flag(isRandom_));
    loadBytes(archive);
}

void SeedState::loadState(InputArchive& archive) {
    isRandom_ = true;
    loadBytes(archive);
}

// A sampled key always has a state, a given key never: saving the state alone depends on that.
void SeedState::loadBytes(InputArchive& archive) {
    u64 length = 0;
    archive(length);
    verify(length == (isRandom_ ? UniformRandomBitGenerator::stateBytes : 0));
    state_.resize(length);
    archive(cereal::binary_data(state_.data(), length));
}

BorrowedGenerator::BorrowedGenerator(UniformRandomBitGenerator& generator)
    : generator_(generator), previous_(generator_.getPosition()) {}

BorrowedGenerator::BorrowedGenerator(const SeedState& seed) : BorrowedGenerator(threadGenerator()) {
    generator_.setState(seed.getState());
}

BorrowedGenerator::BorrowedGenerator() : BorrowedGenerator(threadGenerator()) {
    generator_.takeFreshSeed();
}

BorrowedGenerator::~BorrowedGenerator() {
    generator_.setPosition(previous_);
    utils::wipe(&previous_, sizeof previous_);
}

KeySampling::KeySampling() : generator_(threadGenerator()) {
    if (generator_.isSeededBySystem()) generator_.takeFreshSeed();
}

KeySampling::~KeySampling() {
    if (generator_.isSeededBySystem()) generator_.forgetSeed();
}

} // namespace Torvo
