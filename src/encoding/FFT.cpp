#include "encoding/FFT.hpp"

#include "core/Failure.hpp"

#include <Torvo/CudaTools.hpp>

#include <bit>
#include <complex>
#include <numbers>
#include <string>
#include <utility>

namespace Torvo {

namespace {

using Complex = std::complex<double>;

/// The powers of 5 modulo 2N, N/2 of them.
DeviceSpecificArray<u64> makeRotationGroup(u64 degree) {
    DeviceSpecificArray<u64> powers(degree / 2);
    u64 power = 1;
    for (u64& entry : powers) {
        entry = power;
        power = (5 * power) & (2 * degree - 1);
    }
    return powers;
}

/// exp(i * k * pi / N) for k up to 2N, where the first root comes again so that an index of 2N needs no wrap.
DeviceSpecificArray<Complex> makeRoots(u64 degree) {
    DeviceSpecificArray<Complex> roots(2 * degree + 1);
    for (u64 k = 0; k < 2 * degree; ++k)
        roots[k] =
            std::exp(Complex(0.0, static_cast<double>(k) * std::numbers::pi / static_cast<double>(degree)));
    roots[2 * degree] = roots[0];
    return roots;
}

template <class T>
void copyToDevices(MultipleDevice<T>& value, const std::set<Device>& devices) {
    const std::lock_guard lock(value.mutex());
    for (const Device& device : devices) value.copyTo_(Device{}, device);
}

/// Transforms run on the CPU; a GPU has an entry point of its own, which this build lacks.
void requireCpu(const Message& message, const std::string& functionName) {
    const DeviceType type = message.getDevice().type;
    if (type == DeviceType::CPU) return;
    throwUnsupported(type == DeviceType::GPU ? functionName + "CUDA" : functionName);
}

/// a[i] and a[j] trade places for every i whose log2(n) bits, read backwards, are j.
void bitReverse(Complex* a, u64 n) {
    for (u64 i = 1, j = 0; i < n; ++i) {
        u64 bit = n >> 1;
        for (; (j & bit) != 0; bit >>= 1) j ^= bit;
        j ^= bit;
        if (i < j) std::swap(a[i], a[j]);
    }
}

void bitReverseIfPowerOfTwo(Complex* a, u64 n) {
    if (n > 1 && std::has_single_bit(n)) bitReverse(a, n);
}

/// The tables of one device, looked up once per transform.
struct Tables {
    u64 log_degree;
    const u64* rot;
    const Complex* ksi;
};

/// One stage over the whole blocks of `len` among the n elements: butterfly(a[j], a[j + len/2], root) for
/// every j < len/2 of every block, the root being exp(2 pi i * 5^j / (4 len)), or its conjugate when not
/// `forward`. The table holds it at an index below 2N: 5^j modulo 4 len, times N / (2 len).
template <bool forward, class Butterfly>
void runStage(Complex* a, u64 n, u64 len, const Tables& tables, Butterfly butterfly) {
    const u64 half = len / 2, quad = 4 * len, mask = quad - 1;
    const u64 shift = tables.log_degree - static_cast<u64>(std::bit_width(len));
    for (u64 i = 0; i + len <= n; i += len) {
        for (u64 j = 0; j < half; ++j) {
            const u64 power = tables.rot[j] & mask;
            butterfly(a[i + j], a[i + j + half], tables.ksi[(forward ? power : quad - power) << shift]);
        }
    }
}

void runForward(Complex* a, u64 n, const Tables& tables) {
    bitReverseIfPowerOfTwo(a, n);
    for (u64 len = 2; len <= n; len *= 2) {
        runStage<true>(a, n, len, tables, [](Complex& low, Complex& high, const Complex& t) {
            const Complex u = low, v = high * t;
            low = u + v;
            high = u - v;
        });
    }
}

void runBackward(Complex* a, u64 n, const Tables& tables) {
    for (u64 len = std::bit_floor(n); len >= 2; len /= 2) {
        runStage<false>(a, n, len, tables, [](Complex& low, Complex& high, const Complex& t) {
            const Complex u = low + high, v = (low - high) * t;
            low = u;
            high = v;
        });
    }
    bitReverseIfPowerOfTwo(a, n);
    for (u64 i = 0; i < n; ++i) a[i] /= static_cast<double>(n);
}

} // namespace

FFT::FFT(unsigned long degree, const std::set<Device>& devices) : degree_(degree) {
    rotationGroup_.set(Device{}, makeRotationGroup(degree));
    roots_.set(Device{}, makeRoots(degree));
    if (!CudaTools::isAvailable()) return;
    copyToDevices(rotationGroup_, devices);
    copyToDevices(roots_, devices);
}

void FFT::forwardFFT(Message& message) const {
    requireCpu(message, "forwardFFT");
    const Device device = message.getDevice();
    runForward(
        message.begin(), message.getSize(),
        {std::bit_width(degree_) - u64{1}, rotationGroup_.at(device).getData(), roots_.at(device).getData()});
}

void FFT::backwardFFT(Message& message) const {
    requireCpu(message, "backwardFFT");
    const Device device = message.getDevice();
    runBackward(
        message.begin(), message.getSize(),
        {std::bit_width(degree_) - u64{1}, rotationGroup_.at(device).getData(), roots_.at(device).getData()});
}

} // namespace Torvo
