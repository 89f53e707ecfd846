#include "crypto/UniformRandomBitGenerator.hpp"

#include "arithmetic/elements/RandomWords.hpp"
#include "core/Blake3.hpp"
#include "core/Forks.hpp"
#include "core/SecureWipe.hpp"
#include "crypto/SystemSeed.hpp"
#include "persistence/MemoryBuffer.hpp"
#include "persistence/Serialize.hpp"

#include <cereal/types/array.hpp>

#include <algorithm>
#include <istream>
#include <ostream>

namespace Torvo {

namespace {

/// A value that no number of forks reaches.
constexpr u64 forgotten = ~u64{0};

} // namespace

UniformRandomBitGenerator::UniformRandomBitGenerator() {
    takeFreshSeed();
}

UniformRandomBitGenerator::~UniformRandomBitGenerator() {
    forgetSeed();
}

u64 UniformRandomBitGenerator::operator()() {
    if (position_.index >= filled_) provideWords();
    return buffer_[position_.index++];
}

// A large number of words is written directly to the output, not through the buffer.
void UniformRandomBitGenerator::getRandomNumbers(unsigned long* out, unsigned long count) {
    while (count > 0) {
        u64 run = 0;
        if (position_.index >= filled_ && count >= pieceWords) {
            reachWords();
            run = std::min(count, wordCount - position_.index);
            hash(position_.index, out, run);
        } else {
            if (position_.index >= filled_) provideWords();
            run = std::min(count, filled_ - position_.index);
            std::copy_n(buffer_.get() + position_.index, run, out);
        }
        position_.index += run;
        out += run;
        count -= run;
    }
}

/// Moves the position to a word of a valid seed. Everything that can fail is done before the position
/// changes.
void UniformRandomBitGenerator::reachWords() {
    renewIfStale();
    if (position_.index < wordCount) return;
    ++position_.counter;
    position_.index = 0;
    filled_ = 0;
}

void UniformRandomBitGenerator::provideWords() {
    makeBuffer();
    reachWords();
    const u64 begin = position_.index / pieceWords * pieceWords;
    fill(begin, begin + pieceWords);
}

void UniformRandomBitGenerator::makeBuffer() {
    if (buffer_ == nullptr) buffer_ = std::make_unique_for_overwrite<u64[]>(wordCount);
}

void UniformRandomBitGenerator::refillBuffer() {
    makeBuffer();
    fill(0, wordCount);
}

void UniformRandomBitGenerator::hash(u64 begin, u64* out, u64 count) const {
    const u64 counter = position_.counter;
    const utils::BLAKE3Output words(&counter, sizeof counter, position_.seed.data());
    words.read(begin * sizeof(u64), out, count * sizeof(u64));
}

void UniformRandomBitGenerator::fill(u64 begin, u64 end) {
    hash(begin, buffer_.get() + begin, end - begin);
    filled_ = end;
    written_ = std::max(written_, end);
}

void UniformRandomBitGenerator::wipeWords() noexcept {
    utils::wipe(buffer_.get(), written_ * sizeof(u64));
    filled_ = written_ = 0;
}

void UniformRandomBitGenerator::setSeed(const std::array<unsigned long, 4>& seed) noexcept {
    start(seed, false);
}

// Field by field: a temporary position would leave a copy of the seed on the stack.
void UniformRandomBitGenerator::start(const std::array<unsigned long, 4>& seed,
                                      bool isSeededBySystem) noexcept {
    wipeWords();
    position_.seed = seed;
    position_.counter = 0;
    position_.index = 0;
    position_.isSeededBySystem = isSeededBySystem;
    position_.forks = forkCount();
}

void UniformRandomBitGenerator::takeFreshSeed() {
    std::array<unsigned long, 4> seed{};
    drawSystemSeed(seed);
    start(seed, true);
    utils::wipe(seed.data(), sizeof seed);
}

void UniformRandomBitGenerator::forgetSeed() noexcept {
    wipeWords();
    utils::wipe(&position_, sizeof position_);
    position_.forks = forgotten;
}

void UniformRandomBitGenerator::renewIfStale() {
    if (position_.forks != forkCount()) takeFreshSeed();
}

void UniformRandomBitGenerator::setPosition(const Position& position) noexcept {
    wipeWords();
    position_ = position;
}

void UniformRandomBitGenerator::save(std::ostream& stream) const {
    Serialize::save(stream, position_.seed, position_.counter, position_.index);
}

// The state changes only after all of it has been read.
void UniformRandomBitGenerator::load(std::istream& stream) {
    Position loaded{.forks = forkCount()};
    Serialize::load(stream, loaded.seed, loaded.counter, loaded.index);
    setPosition(loaded);
    utils::wipe(&loaded, sizeof loaded);
}

std::string UniformRandomBitGenerator::getState() const {
    std::string state(stateBytes, '\0');
    detail::MemoryBuffer buffer(state.data(), state.size());
    std::ostream stream(&buffer);
    save(stream);
    return state;
}

void UniformRandomBitGenerator::setState(const std::string& state) {
    std::string copy(state);
    detail::MemoryBuffer buffer(copy.data(), copy.size());
    std::istream stream(&buffer);
    load(stream);
    utils::wipe(copy.data(), copy.size());
}

UniformRandomBitGenerator& threadGenerator() {
    thread_local UniformRandomBitGenerator generator;
    generator.renewIfStale();
    return generator;
}

void drawRandomWords(u64* out, u64 count) {
    threadGenerator().getRandomNumbers(out, count);
}

} // namespace Torvo
