#pragma once

#include "core/DeviceSpecificArray.hpp"
#include "core/MultipleDevice.hpp"

#include <Torvo/Context.hpp>

namespace Torvo {

/// The constants of the gadget decomposition, one word per ciphertext prime i, with g the digit of i:
/// the gadget element of digit g is P * hatQ_g * (hatQ_g^-1 mod Q_g). Immutable, thread-safe; the accessors
/// throw std::out_of_range "map::at" for a device without tables.
class RNSDecomposeData {
public:
    explicit RNSDecomposeData(const Context& context);

    /// Product of all temporary primes modulo p_i.
    const u64* getPMod(const Device& device) const { return pMod_.at(device).getData(); }
    /// Product of all ciphertext primes outside i's digit modulo p_i.
    const u64* getHatQMod(const Device& device) const { return hatQMod_.at(device).getData(); }
    /// The inverse of `getHatQMod` modulo p_i.
    const u64* getHatQInvMod(const Device& device) const { return hatQInvMod_.at(device).getData(); }

private:
    MultipleDevice<DeviceSpecificArray<u64>> pMod_;
    MultipleDevice<DeviceSpecificArray<u64>> hatQMod_;
    MultipleDevice<DeviceSpecificArray<u64>> hatQInvMod_;
};

} // namespace Torvo
