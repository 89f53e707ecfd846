#pragma once

#include "core/Integers.hpp"

#include <Torvo/Message.hpp>

namespace Torvo {

/// The fields of a planned ciphertext. Its numbers are those that one reads who takes its scale for that of its level.
class PlannedCiphertextImpl {
public:
    u64 level = 0;
    int rescale_counter = 0;
    u64 numElements = 2;
    Message exact;
    Message noisy;
};

} // namespace Torvo
