#pragma once

#include "arithmetic/chain/CustomSizes.hpp"
#include "arithmetic/chain/RoundedNumbers.hpp"
#include "arithmetic/chain/Validators.hpp"
#include "arithmetic/elements/LevelledElement.hpp"
#include "arithmetic/elements/LevelledVector.hpp"
#include "arithmetic/elements/Polynomial.hpp"
#include "arithmetic/elements/PolynomialVector.hpp"
#include "arithmetic/kernels/Automorphism.hpp"
#include "arithmetic/kernels/Modulus.hpp"
#include "core/DeviceSpecificArray.hpp"
#include "core/MultipleDevice.hpp"
#include <Torvo/LWEParameterPreset.hpp>

#include <Torvo/Device.hpp>
#include <Torvo/ParameterPreset.hpp>

#include <set>
#include <span>
#include <vector>

namespace Torvo {

class Message;

/// Whether the rows that an operation sets aside are wiped, as those of a secret are.
enum class Scratch { Plain, Wiped };

/// The chain of primes of one context, base prime first, then the quantize primes, then the temporary primes,
/// and every operation on the ring containers.
///
/// An operation's output is the last argument and may be any of its inputs. Every operation, in this order:
/// takes the smaller level of its operands for the result; checks that they are on one device that the
/// context serves ("Operands are in different devices.", "The generated context does not support the
/// operation with current operands; check the device."); shapes its outputs; runs one kernel per row, the
/// rows in parallel. Operands on a device without backend fail with "Cannot support the function '<name>' in
/// the current build configuration". Immutable after construction, thread-safe.
class PrimeModuli {
public:
    /// Finds the primes of a custom ring.
    /// @throws RuntimeException as `makeContext` of custom numbers
    PrimeModuli(const CustomSizes& sizes, std::set<Device> devices);
    /// The chain of a preset.
    /// @throws RuntimeException "Custom parameter preset cannot be constructed in this way"
    PrimeModuli(const ParameterPreset& preset, unsigned long numPrimes, unsigned long degree,
                std::set<Device> devices);
    /// Finds the primes of a custom LWE parameter set; without transforms.
    PrimeModuli(const LWE::CustomSizes& sizes, std::set<Device> devices);
    /// The chain of an LWE preset; without transforms.
    PrimeModuli(const LWE::ParameterPreset& preset, unsigned long numPrimes, unsigned long degree,
                std::set<Device> devices);

    PrimeModuli(const PrimeModuli&) = delete;
    PrimeModuli& operator=(const PrimeModuli&) = delete;

    const Modulus& operator[](u64 i) const { return moduli_[i]; }
    const std::vector<Modulus>& getModuli() const { return moduli_; }
    u64 getPrime(u64 i) const { return moduli_[i].getPrime(); }
    /// All primes in chain order.
    std::vector<unsigned long> getPrimes() const;
    u64 size() const { return moduli_.size(); }
    u64 getDegree() const { return degree_; }
    const std::set<Device>& getDevices() const { return devices_; }
    /// For prime i the pair (I, p - I) at words 2i and 2i + 1, I being the square root of -1 to which
    /// X^(N/2) evaluates at the first N/2 points.
    const DeviceSpecificArray<u64>& getICoefficients() const { return iCoefficients_; }
    /// Inverses of the primes modulo each other: word i * size() + j, j < i, is prime i's modulo prime j.
    const DeviceSpecificArray<u64>& getInvPrimeData(const Device& device) const {
        return invPrimeData_.at(device);
    }
    /// @throws RuntimeException: there is no GPU backend
    void toDevice();

    /// The device that all operands are on.
    /// @throws RuntimeException "Operands are in different devices."; "The generated context does not support
    ///         the operation with current operands; check the device." unless it is the host or one that the
    ///         context was made for
    template <class First, class... Rest>
    Device requireCommonDevice(const First& first, const Rest&... rest) const {
        return requireServed(first.getDevice(), ((rest.getDevice() == first.getDevice()) && ...));
    }
    /// The same for operands of which the first is on `device`, and all others if `isCommon`.
    Device requireServed(const Device& device, bool isCommon) const;
    /// Whether a polynomial has the degree of this ring and its primes on all live rows; in the mod-up state
    /// it has a row for each of them. False too for a level, set by hand, that the polynomial's own chain
    /// does not reach.
    bool isOwn(const Polynomial& p) const;
    /// Whether rows 0 to `level` belong to the first primes of this chain, whatever the degree.
    bool sharesPrimes(const Polynomial& p, u64 level) const;
    /// Whether the temporary rows belong to the last primes of this chain.
    bool sharesTemporaryPrimes(const Polynomial& p) const;

    /// One constant per row: a copy of the words.
    DeviceSpecificArray<u64> computeConstantCoefficients(const LevelledElement& real) const;
    /// Two constants per row, (re + im*I, re - im*I), by which a complex constant multiplies the two halves
    /// of a row.
    DeviceSpecificArray<u64> computeConstantCoefficients(const LevelledElement& real,
                                                         const LevelledElement& imag) const;

    // ---- one operand or two, row by row

    /// @throws RuntimeException "Operands have different mod-up states."
    void add(const Polynomial& a, const Polynomial& b, Polynomial& out) const;
    template <class Validator>
    void add(const Polynomial& a, const Polynomial& b, Polynomial& out, Validator validator) const;
    void sub(const Polynomial& a, const Polynomial& b, Polynomial& out) const;
    void negate(const Polynomial& a, Polynomial& out) const;
    void hadamardMult(const Polynomial& a, const Polynomial& b, Polynomial& out) const;
    /// out = a * b + c. The product may reveal a key: elsewhere than in `out` it is wiped.
    template <class Validator>
    void hadamardMultAdd(const Polynomial& a, const Polynomial& b, const Polynomial& c, Polynomial& out,
                         Validator validator) const;
    /// out = forwardNTT(out) - a * b. The product, which may reveal a key, is wiped.
    void forwardNTTLessProduct(const Polynomial& a, const Polynomial& b, Polynomial& out) const;
    /// out += a * constants[i] on row i of the validator. The product is wiped too.
    template <class Validator>
    void addConstMult(const Polynomial& a, const u64* constants, Polynomial& out, Validator validator) const;
    /// out1 = a * b1, out2 = a * b2; the common factor is the first argument.
    void hadamardMultTwo(const Polynomial& a, const Polynomial& b1, const Polynomial& b2, Polynomial& out1,
                         Polynomial& out2) const;
    /// out1 = y*w, out2 = x*z, out0 = (x+y)*(z+w) - y*w - x*z.
    void tensor(const Polynomial& x, const Polynomial& y, const Polynomial& z, const Polynomial& w,
                Polynomial& out0, Polynomial& out1, Polynomial& out2) const;

    // ---- constants

    void constAdd(const Polynomial& a, const LevelledElement& e, Polynomial& out) const;
    void constAdd(const Polynomial& a, const LevelledElement& re, const LevelledElement& im,
                  Polynomial& out) const;
    void constMult(const Polynomial& a, u64 c, Polynomial& out) const;
    void constMult(const Polynomial& a, const LevelledElement& e, Polynomial& out) const;
    /// One constant per row, on the rows of the validator; `constants[i]` belongs to row i.
    template <class Validator>
    void constMult(const Polynomial& a, const u64* constants, Polynomial& out, Validator validator) const;
    void constMult(const Polynomial& a, const LevelledElement& re, const LevelledElement& im,
                   Polynomial& out) const;
    /// A term of a sum of products with constants; without an imaginary part it is null.
    struct ConstantMultiple {
        const Polynomial& a;
        const LevelledElement& real;
        const LevelledElement* imag;
    };
    /// out = the sum of all terms, in one pass over the rows of the constants, which are at one level and not above
    /// that of any polynomial. `out` is none of the polynomials; there is at least one.
    void sumConstantMultiples(const std::vector<ConstantMultiple>& terms, Polynomial& out) const;
    void constMultTwo(const Polynomial& a, const Polynomial& b, u64 c, Polynomial& out1,
                      Polynomial& out2) const;
    void constMultTwo(const Polynomial& a, const Polynomial& b, const LevelledElement& e, Polynomial& out1,
                      Polynomial& out2) const;
    void constMultTwo(const Polynomial& a, const Polynomial& b, const LevelledElement& re,
                      const LevelledElement& im, Polynomial& out1, Polynomial& out2) const;
    /// out = (a - b) * c[i].
    void subAndConstMult(const Polynomial& a, const Polynomial& b, const u64* c, Polynomial& out) const;
    /// Writes row `row` of `in`, its words read as centred residues, modulo the primes 0 to `newLevel`.
    void normalizeMod(Polynomial& out, const Polynomial& in, u64 row, u64 newLevel) const;

    // ---- permutations

    /// out = a * X^k, |k| < degree, on coefficients.
    void multMonomial(const Polynomial& a, Polynomial& out, long k) const;
    /// The automorphism X -> X^k, k odd, in the NTT domain; `accumulate` adds it to `out`.
    template <bool accumulate>
    void frobeniusMapInNTT(const Polynomial& a, long k, Polynomial& out,
                           Scratch scratch = Scratch::Plain) const;
    /// The same by a table that was made for this degree.
    template <bool accumulate>
    void frobeniusMapInNTT(const Polynomial& a, const Automorphism& automorphism, Polynomial& out,
                           Scratch scratch = Scratch::Plain) const;

    // ---- transforms

    template <class Validator, int range = 1>
    void forwardNTT(const Polynomial& a, Polynomial& out, Validator validator) const;
    /// On the calling thread, without a parallel region.
    template <class Validator, int range = 1>
    void backwardNTT(const Polynomial& a, Polynomial& out, Validator validator) const;
    /// All live rows.
    void forwardNTT(const Polynomial& a, Polynomial& out) const;
    void backwardNTT(const Polynomial& a, Polynomial& out) const;
    /// out = (b - forwardNTT(a)) * c[i].
    template <class Validator, int range = 1>
    void forwardNTTWithSubAndConstMult(const Polynomial& a, const Polynomial& b, const u64* c,
                                       Polynomial& out, Validator validator) const;
    /// Reserved: fails on every device.
    template <class Validator, int range = 1>
    void backwardNTTWithConstMult(const Polynomial& a, const u64* c, Polynomial& out,
                                  Validator validator) const;

    // ---- levels

    /// Divides by the prime of the level, rounding, and drops it; keeps the NTT state.
    void rescale(Polynomial& p) const;
    /// Each of them; the rows of all are one list of work.
    void rescale(std::span<Polynomial* const> polys) const;
    /// Multiplies by the prime of the next level, which the chain of `p` must have; the new row is zero.
    void inverseRescale(Polynomial& p) const;

    // ---- whole polynomials

    bool isZero(const Polynomial& p) const;
    /// Puts n real numbers, multiplied by `scale` and rounded half away from zero, at stride degree / n.
    /// @throws RuntimeException "[embeddingToN] not yet implemented on GPU"; "[embeddingToN] The degree of
    ///         polynomial should be divided by the size of message."
    void embeddingToN(const double* values, u64 n, double scale, Polynomial& out) const;
    /// The same for a message of n slots: the real parts, then the imaginary parts, as 2n values.
    void embeddingToN(const Message& message, double scale, Polynomial& out) const;
    /// The two halves of an embedding. The first shapes `out` and refuses as `embeddingToN` does; the second
    /// takes the same `out`. It multiplies row i by factors[i], unless there are none, and transforms the rows if
    /// the result is to be in the NTT domain.
    RoundedNumbers roundToN(const double* values, u64 n, double scale, Polynomial& out) const;
    RoundedNumbers roundToN(const Message& message, double scale, Polynomial& out) const;
    void spreadToN(const RoundedNumbers& numbers, const DeviceSpecificArray<u64>& factors, bool inNTT,
                   Polynomial& out) const;
    /// The same modulo prime i of the chain, whichever it is: one row in the NTT domain.
    void spreadToRow(const RoundedNumbers& numbers, u64 i, u64* row) const;
    /// Converts small signed integers to polynomials in the NTT domain.
    /// @throws RuntimeException "[coefficientsToPolyVector] Input slot size should be equal to the dimension
    ///         of the polynomial vector."
    void coefficientsToPolyVector(const DeviceSpecificArray<int>& ints, PolynomialVector& polys) const;

    /// out1 = sum of a_j * x_j, out2 = sum of a_j * y_j over the range [aBegin, aEnd), in the NTT domain.
    /// All a_j have one level; x_j and y_j have at least that level, and their rows above it are not read.
    /// @throws RuntimeException "Operand is empty so device is not defined"; "Operands have different
    ///         levels."; "Operands have different mod-up states."
    template <class AIter, class XIter, class YIter>
    void innerProduct(AIter aBegin, AIter aEnd, XIter xBegin, YIter yBegin, Polynomial& out1,
                      Polynomial& out2) const {
        std::vector<ProductPair> pairs;
        for (; aBegin != aEnd; ++aBegin, ++xBegin, ++yBegin) pairs.push_back({&*aBegin, &*xBegin, &*yBegin});
        innerProduct(pairs, out1, out2);
    }

    // ---- integers and vectors in RNS form. Operands of another level or dimension are refused with
    // "Operands have different levels.", but two vectors of different dimensions, before that, with "Operands
    // have different dimensions."

    void add(const LevelledElement& a, const LevelledElement& b, LevelledElement& out) const;
    void sub(const LevelledElement& a, const LevelledElement& b, LevelledElement& out) const;
    void mult(const LevelledElement& a, const LevelledElement& b, LevelledElement& out) const;
    void negate(const LevelledElement& a, LevelledElement& out) const;
    void rescale(LevelledElement& e) const;
    void add(const LevelledVector& a, const LevelledVector& b, LevelledVector& out) const;
    void sub(const LevelledVector& a, const LevelledVector& b, LevelledVector& out) const;
    void negate(const LevelledVector& a, LevelledVector& out) const;
    void constMult(const LevelledVector& a, const LevelledElement& e, LevelledVector& out) const;
    /// out = <a, b>, at the lower of the two levels: a key always keeps all its rows.
    void innerProduct(const LevelledVector& a, const LevelledVector& b, LevelledElement& out) const;
    void rescale(LevelledVector& v) const;
    /// out = X^k * v(X^-1).
    void conjugateInvert(const LevelledVector& v, LevelledVector& out, u64 k) const;
    /// @throws RuntimeException "[coefficientsToLevelledVector] Input slot size should be equal to the
    ///         dimension of levelled vector."
    void coefficientsToLevelledVector(const DeviceSpecificArray<int>& ints, LevelledVector& vector) const;

private:
    enum class Transforms { With, Without };
    PrimeModuli(const std::vector<u64>& chain, u64 degree, Transforms transforms, std::set<Device> devices);

    /// One term of the two sums of `innerProduct`: a * x and a * y.
    struct ProductPair {
        const Polynomial* a;
        const Polynomial* x;
        const Polynomial* y;
    };
    void innerProduct(const std::vector<ProductPair>& pairs, Polynomial& out1, Polynomial& out2) const;

    /// The coefficients modulo prime i.
    void reduceToRow(const RoundedNumbers& numbers, u64 i, u64* row) const;

    void initICoefficients();
    void initInvPrimeData();

    std::vector<Modulus> moduli_;
    std::set<Device> devices_;
    u64 degree_ = 0;
    DeviceSpecificArray<u64> iCoefficients_;
    MultipleDevice<DeviceSpecificArray<u64>> invPrimeData_;
};

} // namespace Torvo
