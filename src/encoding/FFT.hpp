#pragma once

#include "core/DeviceSpecificArray.hpp"
#include "core/MultipleDevice.hpp"

#include <Torvo/Device.hpp>
#include <Torvo/Message.hpp>

#include <complex>
#include <set>

namespace Torvo {

/// The canonical embedding restricted to n slots, n any power of two up to N/2: between n complex
/// coefficients and the values at n primitive roots, ordered along the powers of 5, so that a rotation of the
/// slots is the automorphism X -> X^(5^k). In double precision, with the same bits in every form of the
/// kernels and from any team. Thread-safe on different messages.
class FFT {
public:
    FFT(unsigned long degree, const std::set<Device>& devices);

    /// Coefficients to slot values, in place; no scaling. Both take room for n numbers more.
    /// @throws std::bad_alloc; the message is unchanged then
    void forwardFFT(Message& message) const;
    /// Slot values to coefficients, in place; divides by n.
    void backwardFFT(Message& message) const;

    u64 getDegree() const { return degree_; }
    /// Entry r is 5^r mod 2N, r < N/2: the Galois element of a left rotation by r.
    /// @throws std::out_of_range "map::at" for a device without tables
    u64 getGaloisElement(u64 r, const Device& device) const { return rotationGroup_.at(device)[r]; }
    /// exp(i * k * pi / N) for k from 0 to 2N, 2N + 1 entries.
    const DeviceSpecificArray<std::complex<double>>& getRoots(const Device& device) const {
        return roots_.at(device);
    }

private:
    u64 degree_;
    MultipleDevice<DeviceSpecificArray<u64>> rotationGroup_;
    MultipleDevice<DeviceSpecificArray<std::complex<double>>> roots_;
    MultipleDevice<DeviceSpecificArray<double>>
        stageRoots_; ///< of both directions, in the order of the stages
};

} // namespace Torvo
