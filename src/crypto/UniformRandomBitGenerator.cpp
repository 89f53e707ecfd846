#include "crypto/UniformRandomBitGenerator.hpp"

#include "arithmetic/RandomWords.hpp"
#include "core/Blake3.hpp"
#include "core/SecureWipe.hpp"
#include "persistence/MemoryBuffer.hpp"
#include "persistence/Serialize.hpp"

#include <cereal/types/array.hpp>

#include <algorithm>
#include <istream>
#include <ostream>
#include <random>

namespace Torvo {

UniformRandomBitGenerator::UniformRandomBitGenerator() {
    std::random_device entropy("default");
    for (auto& word : seed_) word = entropy();
    refillBuffer();
}

UniformRandomBitGenerator::~UniformRandomBitGenerator() {
    utils::wipe(seed_.data(), sizeof seed_);
    utils::wipe(buffer_.data(), sizeof buffer_);
}

u64 UniformRandomBitGenerator::operator()() {
    if (index_ >= wordCount) startNextBuffer();
    return buffer_[index_++];
}

void UniformRandomBitGenerator::getRandomNumbers(unsigned long* out, unsigned long count) {
    while (count > 0) {
        if (index_ >= wordCount) startNextBuffer();
        const u64 run = std::min(count, wordCount - index_);
        std::copy_n(buffer_.begin() + index_, run, out);
        index_ += run;
        out += run;
        count -= run;
    }
}

void UniformRandomBitGenerator::startNextBuffer() {
    ++counter_;
    refillBuffer();
    index_ = 0;
}

void UniformRandomBitGenerator::setSeed(const std::array<unsigned long, 4>& seed) {
    seed_ = seed;
    counter_ = 0;
    index_ = 0;
    refillBuffer();
}

void UniformRandomBitGenerator::refillBuffer() {
    utils::doBLAKE3KeyedHash(buffer_.data(), sizeof buffer_, &counter_, sizeof counter_, seed_.data());
}

void UniformRandomBitGenerator::save(std::ostream& stream) const {
    Serialize::save(stream, seed_, counter_, index_);
}

// The state changes only once all of it has been read, so that seed and buffer never disagree.
void UniformRandomBitGenerator::load(std::istream& stream) {
    std::array<unsigned long, 4> seed{};
    u64 counter = 0, index = 0;
    Serialize::load(stream, seed, counter, index);
    seed_ = seed;
    counter_ = counter;
    index_ = index;
    refillBuffer();
    utils::wipe(seed.data(), sizeof seed);
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
    return generator;
}

void drawRandomWords(u64* out, u64 count) {
    threadGenerator().getRandomNumbers(out, count);
}

} // namespace Torvo
