#include <Torvo/Randomseeds.hpp>

#include "crypto/UniformRandomBitGenerator.hpp"

namespace Torvo {

std::array<unsigned long, 4> getSeed() {
    return threadGenerator().getSeed();
}

void setSeed(const std::array<unsigned long, 4>& seed) {
    threadGenerator().setSeed(seed);
}

} // namespace Torvo
