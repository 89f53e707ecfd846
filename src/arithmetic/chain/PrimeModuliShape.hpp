#pragma once

#include "arithmetic/chain/Backend.hpp"
#include "arithmetic/chain/PrimeModuli.hpp"
#include "arithmetic/chain/Validators.hpp"
#include "arithmetic/elements/LevelledElement.hpp"
#include "arithmetic/elements/Polynomial.hpp"
#include "arithmetic/kernels/RowLoop.hpp"
#include "core/DeviceSpecificArray.hpp"
#include "core/SecureWipe.hpp"

#include <omp.h>

#include <algorithm>
#include <initializer_list>
#include <vector>

/// The shape that all members of `PrimeModuli` share: what an operation derives from its operands before it
/// touches a row, and the loop over the rows. Internal to the units of `PrimeModuli`.
namespace Torvo {

/// The properties of an operand that decide the shape of a result. They are read before the outputs are
/// shaped, so that an output may be an operand.
struct Operand {
    Operand(const Polynomial& polynomial);
    Operand(const LevelledElement& element);
    /// Anything else, with rows up to `rowLevel`.
    Operand(u64 rowLevel, const Device& itsDevice)
        : level(rowLevel), rowEnd(rowLevel + 1), device(itsDevice) {}

    const Polynomial* polynomial = nullptr; ///< null: not a polynomial
    u64 level;
    u64 rowEnd; ///< one past its last row
    Device device;
};

/// An output and the NTT state that it is to have.
struct Output {
    Polynomial& polynomial;
    bool isNTT;
};

/// The rows that an operation may act on: those below `end`, without the rows between `level` and `numBase`,
/// which hold nothing.
struct RowBound {
    u64 level;
    u64 numBase;
    u64 end;

    /// The rows below `end` that `validator` accepts, in ascending order.
    template <class Validator>
    std::vector<u64> where(const Validator& validator) const {
        std::vector<u64> rows;
        rows.reserve(end);
        for (u64 i = 0; i < end; ++i)
            if (validator.validate(i)) rows.push_back(i);
        return rows;
    }
    std::vector<u64> live() const { return where(ModUpOutputModulusBoundEvalValidator(level, numBase)); }
};

/// Gives the outputs the level, device and NTT state of the result, in this order: the operands' devices are
/// compared and checked; operands without the degree of `primes` or, on the rows within the bound, without
/// its primes are refused; each output gets the smallest level of the operands; outputs on another device are
/// allocated; a device without backend is refused. The bound is that of the operand, or output, with the
/// fewest rows.
RowBound shapeResult(const PrimeModuli& primes, FailureNames names, std::initializer_list<Operand> operands,
                     std::initializer_list<Output> outputs);

/// Calls body(i) for each of `rows`, in parallel.
template <Nesting nesting = Nesting::Default, class Body>
void forEachRow(const std::vector<u64>& rows, Body&& body) {
    forEachIndex<nesting>(rows.size(), [&](u64 k) { body(rows[k]); });
}

/// Runs kernel(in, target) for a kernel that cannot write over its input: target is `out`, or, if that is the
/// input, the row `scratch`, from which the result is copied.
template <class Kernel>
void permuteRow(const u64* in, u64* out, u64 n, u64* scratch, Kernel&& kernel) {
    u64* target = in == out ? scratch : out;
    kernel(in, target);
    if (target != out) std::copy_n(target, n, out);
}

/// Spare rows for the threads of one row loop whose kernel cannot write over its input. They are made before
/// the loop, so that nothing is allocated inside. Empty for a `length` of 0.
class ScratchRows {
public:
    explicit ScratchRows(u64 length, Scratch kind = Scratch::Plain)
        : length_(length), kind_(kind), words_(length * teamSize()) {}
    ScratchRows(const ScratchRows&) = delete;
    ScratchRows& operator=(const ScratchRows&) = delete;
    ~ScratchRows() {
        if (kind_ == Scratch::Wiped) utils::wipe(words_);
    }

    /// A copy of `row`, which stays when `row` is overwritten.
    const u64* hold(const u64* row) {
        std::copy_n(row, length_, mine());
        return mine();
    }
    /// The calling thread's row.
    u64* mine() { return words_.getData() + static_cast<u64>(omp_get_thread_num()) * length_; }

private:
    static u64 teamSize() { return static_cast<u64>(omp_get_max_threads()); }

    u64 length_;
    Scratch kind_;
    DeviceSpecificArray<u64> words_;
};

} // namespace Torvo
