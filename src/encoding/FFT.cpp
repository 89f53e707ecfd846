#include "encoding/FFT.hpp"

#include "arithmetic/kernels/Feature.hpp"
#include "arithmetic/kernels/RowLoop.hpp"
#include "core/Failure.hpp"
#include "encoding/FFTKernels.hpp"

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

/// One stage over the whole blocks of `len` among the n elements: butterfly(a[j], a[j + len/2], root) for every
/// j < len/2 of every block.
template <class Butterfly>
void runStage(Complex* a, u64 n, u64 len, fft::Roots roots, Butterfly butterfly) {
    const u64 half = len / 2;
    for (u64 i = 0; i + len <= n; i += len)
        for (u64 j = 0; j < half; ++j)
            butterfly(a[i + j], a[i + j + half], Complex(roots.re[half + j], roots.im[half + j]));
}

void runForward(Complex* a, u64 n, fft::Roots roots) {
    bitReverseIfPowerOfTwo(a, n);
    for (u64 len = 2; len <= n; len *= 2) {
        runStage(a, n, len, roots, [](Complex& low, Complex& high, const Complex& t) {
            const Complex u = low, v = high * t;
            low = u + v;
            high = u - v;
        });
    }
}

void runBackward(Complex* a, u64 n, fft::Roots roots) {
    for (u64 len = std::bit_floor(n); len >= 2; len /= 2) {
        runStage(a, n, len, roots, [](Complex& low, Complex& high, const Complex& t) {
            const Complex u = low + high, v = (low - high) * t;
            low = u;
            high = v;
        });
    }
    bitReverseIfPowerOfTwo(a, n);
    for (u64 i = 0; i < n; ++i) a[i] /= static_cast<double>(n);
}

// An array of complex numbers is one of their parts, by the rules of std::complex.

double* partsOf(Complex* a) {
    return reinterpret_cast<double*>(a);
}

/// Whether n numbers are so small that nothing overflows in a transform: a stage makes them greater by a factor
/// below 4. False for NaN too.
bool stayFinite(Complex* a, u64 n) {
    constexpr u64 magnitude = ~u64{0} >> 1;
    const u64 most = std::bit_cast<u64>(0x1p900);
    const double* parts = partsOf(a);
    u64 borrows = 0; // words of doubles are in the order of their magnitudes, infinities and NaN last
    for (u64 i = 0; i < 2 * n; ++i) borrows |= most - (std::bit_cast<u64>(parts[i]) & magnitude);
    return borrows <= magnitude;
}

const fft::Kernels* currentKernels() {
    switch (currentForm()) {
    case KernelForm::Scalar:
        return nullptr;
    case KernelForm::AVX2:
    case KernelForm::FMA:
        return &AVX2::fftKernels;
    case KernelForm::AVX512:
    case KernelForm::IFMA:
        break;
    }
    return &AVX512::fftKernels;
}

/// The kernels that transform these n numbers; null where the scalar form must.
const fft::Kernels* kernelsFor(Complex* a, u64 n) {
    return n >= fft::minVectorSlots && std::has_single_bit(n) && stayFinite(a, n) ? currentKernels()
                                                                                  : nullptr;
}

/// Room for n numbers between the pieces of a transform.
class Between {
public:
    explicit Between(u64 n) : n_(n), parts_(2 * n) {}
    fft::Split split() { return {parts_.getData(), parts_.getData() + n_}; }

private:
    u64 n_;
    DeviceSpecificArray<double> parts_;
};

/// The threads of a team need longer to meet than a transform of fewer slots takes.
constexpr u64 leastForTeam = 4096;

/// Calls body(begin, end) for the shares of a team in `count`, a multiple of eight, for a transform of n slots.
template <class Body>
void share(u64 n, u64 count, Body&& body) {
    if (n < leastForTeam)
        body(0, count);
    else
        forEachShare(count, body);
}

/// Calls body(k) for the quarters k of n slots.
template <class Body>
void forEachQuarter(u64 n, Body&& body) {
    if (n < leastForTeam)
        for (u64 k = 0; k < 4; ++k) body(k);
    else
        forEachIndex(4, body);
}

void runForward(Complex* a, u64 n, fft::Roots roots, const fft::Kernels& kernels) {
    Between between(n);
    const fft::Split split = between.split();
    double* slots = partsOf(a);
    const u64 quarter = n / 4;
    share(n, n / kernels.width,
          [&](u64 begin, u64 end) { kernels.forwardColumns(slots, split, n, begin, end, roots); });
    forEachQuarter(n, [&](u64 k) { kernels.forwardBlock(split + k * quarter, quarter, roots); });
    share(n, quarter,
          [&](u64 begin, u64 end) { kernels.forwardQuarters(split, slots, n, begin, end, roots); });
}

void runBackward(Complex* a, u64 n, fft::Roots roots, const fft::Kernels& kernels) {
    Between between(n);
    const fft::Split split = between.split();
    double* slots = partsOf(a);
    const u64 quarter = n / 4;
    share(n, quarter,
          [&](u64 begin, u64 end) { kernels.backwardQuarters(slots, split, n, begin, end, roots); });
    forEachQuarter(n, [&](u64 k) { kernels.backwardBlock(split + k * quarter, quarter, roots); });
    share(n, n / kernels.width,
          [&](u64 begin, u64 end) { kernels.backwardColumns(split, slots, n, begin, end, roots); });
}

/// The roots of all stages, in the order of fft::Roots: first those of the forward direction, their real and then
/// their imaginary parts, then those of the backward direction. The root of butterfly j of a stage over blocks of
/// `len` is exp(2 pi i * 5^j / (4 len)), or its conjugate backward. `roots` holds it at an index below 2N: 5^j
/// modulo 4 len, or 4 len minus that, times N / (2 len). What is conjugate is not so in its last bits.
DeviceSpecificArray<double> makeStageRoots(u64 degree, const DeviceSpecificArray<u64>& powers,
                                           const DeviceSpecificArray<Complex>& roots) {
    const u64 count = degree / 2;
    DeviceSpecificArray<double> parts(4 * count);
    parts.clear();
    double* forward = parts.getData();
    double* backward = forward + 2 * count;
    for (u64 half = 1; half < count; half *= 2) {
        const u64 quad = 8 * half, step = degree / (4 * half);
        for (u64 j = 0; j < half; ++j) {
            const u64 power = powers[j] & (quad - 1);
            const Complex t = roots[power * step], inverse = roots[(quad - power) * step];
            forward[half + j] = t.real();
            forward[count + half + j] = t.imag();
            backward[half + j] = inverse.real();
            backward[count + half + j] = inverse.imag();
        }
    }
    return parts;
}

} // namespace

FFT::FFT(unsigned long degree, const std::set<Device>& devices) : degree_(degree) {
    rotationGroup_.set(Device{}, makeRotationGroup(degree));
    roots_.set(Device{}, makeRoots(degree));
    stageRoots_.set(Device{}, makeStageRoots(degree, rotationGroup_.at(Device{}), roots_.at(Device{})));
    if (!CudaTools::isAvailable()) return;
    copyToDevices(rotationGroup_, devices);
    copyToDevices(roots_, devices);
    copyToDevices(stageRoots_, devices);
}

void FFT::forwardFFT(Message& message) const {
    requireCpu(message, "forwardFFT");
    const double* parts = stageRoots_.at(message.getDevice()).getData();
    const fft::Roots roots{parts, parts + degree_ / 2};
    Complex* slots = message.begin();
    const u64 n = message.getSize();
    if (const fft::Kernels* kernels = kernelsFor(slots, n))
        runForward(slots, n, roots, *kernels);
    else
        runForward(slots, n, roots);
}

void FFT::backwardFFT(Message& message) const {
    requireCpu(message, "backwardFFT");
    const double* parts = stageRoots_.at(message.getDevice()).getData() + degree_;
    const fft::Roots roots{parts, parts + degree_ / 2};
    Complex* slots = message.begin();
    const u64 n = message.getSize();
    if (const fft::Kernels* kernels = kernelsFor(slots, n))
        runBackward(slots, n, roots, *kernels);
    else
        runBackward(slots, n, roots);
}

} // namespace Torvo
