#include "bootstrap/BootstrapperImpl.hpp"
#include "crypto/OutputShape.hpp"

#include <cmath>
#include <numbers>
#include <utility>

namespace Torvo {

namespace {

constexpr double twoPi = 2 * std::numbers::pi;

/// The evaluator in the form of expressions. `product` and `tensor` owe one rescale, and `tensor` also a
/// relinearisation. A sum of such terms pays these once.
class Calculator {
public:
    Calculator(const Context& context, const HomEvaluatorImpl& evaluator)
        : context_(context), evaluator_(evaluator) {}

    Ciphertext product(const Ciphertext& a, const Ciphertext& b) const {
        return make([&](Ciphertext& out) { evaluator_.multWithoutRescale(a, b, out); });
    }
    Ciphertext product(const Ciphertext& a, double c) const {
        return make(
            [&](Ciphertext& out) { evaluator_.multWithoutRescale(a, std::complex<double>(c, 0.0), out); });
    }
    Ciphertext tensor(const Ciphertext& a, const Ciphertext& b) const {
        return make([&](Ciphertext& out) { evaluator_.tensor(a, b, out); }, 3);
    }
    Ciphertext levelDownOne(const Ciphertext& a) const {
        return make([&](Ciphertext& out) { evaluator_.levelDownOne(a, out); });
    }
    Ciphertext sum(Ciphertext a, const Ciphertext& b) const {
        evaluator_.add(a, b, a);
        return a;
    }
    Ciphertext plus(Ciphertext a, double c) const {
        evaluator_.add(a, std::complex<double>(c, 0.0), a);
        return a;
    }
    Ciphertext difference(Ciphertext a, const Ciphertext& b) const {
        evaluator_.sub(a, b, a);
        return a;
    }
    Ciphertext twice(Ciphertext a) const {
        evaluator_.multInteger(a, 2, a);
        return a;
    }
    Ciphertext rescaled(Ciphertext a) const {
        evaluator_.rescale(a);
        return a;
    }
    Ciphertext relinearized(const Ciphertext& a) const {
        return make([&](Ciphertext& out) { evaluator_.relinearize(a, out); });
    }
    /// T_2n of T_n: 2 a^2 - 1, one level lower.
    Ciphertext chebyshevDouble(const Ciphertext& a) const {
        return plus(twice(rescaled(product(a, a))), -1.0);
    }

private:
    template <class Compute>
    Ciphertext make(Compute&& compute, u64 numPoly = 2) const {
        Ciphertext out = unsetCiphertext(context_, numPoly);
        compute(out);
        return out;
    }

    const Context& context_;
    const HomEvaluatorImpl& evaluator_;
};

/// The blocks of the cosine polynomial and the powers U_k = T_(8 * 2^k) that join them:
/// sum over j of P_j * product over set bits k of j of U_k. All blocks are at one level, except the last,
/// which is one higher. U_0 is at the level of the last, and each further U_k one lower.
class BlockSum {
public:
    BlockSum(const Calculator& calculator, std::vector<Ciphertext> blocks, std::vector<Ciphertext> powers)
        : calc_(calculator), P_(std::move(blocks)), U_(std::move(powers)) {}

    Ciphertext evaluate() {
        switch (U_.size()) {
        case 2:
            return ofFour();
        case 3:
            return ofEight();
        default:
            return ofAnyNumber();
        }
    }

private:
    void multiply(u64 block, u64 power) { P_[block] = calc_.rescaled(calc_.product(P_[block], U_[power])); }
    void lowerBlock(u64 block) { P_[block] = calc_.levelDownOne(P_[block]); }
    void lowerPower(u64 power) { U_[power] = calc_.levelDownOne(U_[power]); }
    void addTo(u64 block, u64 other) { P_[block] = calc_.sum(std::move(P_[block]), P_[other]); }
    Ciphertext tensor(u64 block, u64 power) const { return calc_.tensor(P_[block], U_[power]); }
    Ciphertext close(const Ciphertext& sum) const { return calc_.rescaled(calc_.relinearized(sum)); }

    /// P0 + P1 U0 + (P2 + P3 U0) U1, two levels.
    Ciphertext ofFour() {
        multiply(3, 0);
        lowerPower(0);
        Ciphertext sum = tensor(1, 0);
        addTo(2, 3);
        sum = calc_.sum(std::move(sum), tensor(2, 1));
        lowerBlock(0);
        return calc_.sum(close(sum), P_[0]);
    }

    /// P0 + P1 U0 + (P2 + P3 U0) U1 + (P4 + P5 U0 + (P6 + P7 U0) U1) U2, three levels.
    Ciphertext ofEight() {
        multiply(7, 0);
        lowerPower(0);
        Ciphertext upper = tensor(5, 0);
        addTo(6, 7);
        upper = calc_.sum(std::move(upper), tensor(6, 1));
        P_[6] = close(upper);
        lowerBlock(4);
        addTo(4, 6);

        multiply(3, 0);
        lowerBlock(1);
        lowerPower(0);
        Ciphertext sum = tensor(1, 0);
        lowerBlock(2);
        addTo(2, 3);
        lowerPower(1);
        sum = calc_.sum(std::move(sum), tensor(2, 1));
        sum = calc_.sum(std::move(sum), calc_.tensor(U_[2], P_[4]));
        return calc_.sum(close(sum), P_[0]); // the sum takes P0 down
    }

    /// Joins neighbours by U_0, then neighbours of those by U_1, and so on.
    Ciphertext ofAnyNumber() {
        for (u64 t = 0; t < U_.size(); ++t) {
            const u64 w = u64{1} << t;
            // The last pair is one level above the others.
            const u64 last = P_.size() - 2 * w;
            multiply(last + w, t);
            addTo(last, last + w);
            if (last == 0) break;
            lowerPower(t);
            for (u64 i = 0; i < last; i += 2 * w) {
                const Ciphertext joined = calc_.product(P_[i + w], U_[t]);
                P_[i] = calc_.rescaled(calc_.sum(calc_.product(P_[i], 1.0), joined));
            }
        }
        return P_[0];
    }

    const Calculator& calc_;
    std::vector<Ciphertext> P_;
    std::vector<Ciphertext> U_;
};

/// The Chebyshev polynomials of low degree at the levels at which the blocks use them; y is at level l.
struct LowPowers {
    LowPowers(const Calculator& calc, const Ciphertext& y)
        : t2(calc.chebyshevDouble(y)), t4(calc.chebyshevDouble(t2)), t2a(calc.levelDownOne(t2)),
          t2b(calc.levelDownOne(t2a)), t4b(calc.levelDownOne(t4)),
          t6(calc.difference(calc.rescaled(calc.twice(calc.product(t2a, t4))), t2b)) {}

    Ciphertext t2;  ///< l - 1
    Ciphertext t4;  ///< l - 2
    Ciphertext t2a; ///< l - 2
    Ciphertext t2b; ///< l - 3
    Ciphertext t4b; ///< l - 3
    Ciphertext t6;  ///< l - 3: 2 T2 T4 - T2
};

/// amplitude * (c[0] + c[1] T2 + c[2] T4 + c[3] T6), at level l - 4.
Ciphertext block(const Calculator& calc, const LowPowers& t, const double* c, double amplitude) {
    Ciphertext sum = calc.product(t.t2b, amplitude * c[1]);
    sum = calc.sum(std::move(sum), calc.product(t.t4b, amplitude * c[2]));
    sum = calc.sum(std::move(sum), calc.product(t.t6, amplitude * c[3]));
    return calc.plus(calc.rescaled(std::move(sum)), amplitude * c[0]);
}

/// The same at level l - 3, for the block that has one product more: T6 = T2 (2 T4 - 1) without t6, whose
/// level is too low.
Ciphertext lastBlock(const Calculator& calc, const LowPowers& t, const double* c, double amplitude) {
    const Ciphertext scaled = calc.rescaled(calc.product(t.t2, amplitude * c[3]));
    Ciphertext sum = calc.product(calc.plus(calc.twice(t.t4), -1.0), scaled);
    sum = calc.sum(std::move(sum), calc.product(t.t2a, amplitude * c[1]));
    sum = calc.sum(std::move(sum), calc.product(t.t4, amplitude * c[2]));
    return calc.plus(calc.rescaled(std::move(sum)), amplitude * c[0]);
}

} // namespace

void BootstrapperImpl::removeI(const Ciphertext& in, Ciphertext& out, double factor) const {
    const std::vector<double>& log_scale = context_->scale_factors.log_scale;
    const double q0 = primeZero();
    Ciphertext t = in;
    if (parameter_.separate_normalization) {
        const double topScale = std::pow(2.0, log_scale[context_->parameter.chain_length - 1]);
        const double u =
            topScale / q0 / (2 * parameter_.range_bound * static_cast<double>(parameter_.post_raise_factor));
        evaluator_->multWithoutRescale(t, std::complex<double>(u, 0.0), t);
        evaluator_->rescale(t);
    }
    // A quarter of a period turns the cosine into the sine.
    evaluator_->sub(t, std::complex<double>(0.25 / parameter_.range_bound, 0.0), t);
    double e = -log_scale[0];
    if (context_->parameter.hasLevelsAboveEncryption())
        e = static_cast<double>(
                context_->scale_factors.level_correction[context_->parameter.encryption_level + 1]) -
            log_scale[0];
    const double f =
        std::pow(2.0, e) * q0 / static_cast<double>(parameter_.pre_raise_factor) * factor / twoPi;
    cosineApprox(t, out, f);
    arcsineApprox(out, out, parameter_.arcsine_degree, f);
}

void BootstrapperImpl::cosineApprox(const Ciphertext& in, Ciphertext& out, double factor) const {
    const Calculator calc(context_, *evaluator_);
    const std::vector<double>& c = parameter_.cosine_coefficients;
    const u64 blockCount = u64{1} << parameter_.log_cosine_blocks;

    // The double-angle steps square the amplitude; without an arcsine the final amplitude is the factor
    // itself.
    double amplitude = 1.0;
    if (parameter_.arcsine_degree == 1) {
        amplitude = std::abs(factor);
        for (u64 i = 0; i < parameter_.double_angle_count; ++i) amplitude = std::sqrt(amplitude);
    }

    const LowPowers powers(calc, in);
    std::vector<Ciphertext> blocks;
    blocks.reserve(blockCount);
    for (u64 j = 0; j + 1 < blockCount; ++j) blocks.push_back(block(calc, powers, &c[4 * j], amplitude));
    blocks.push_back(lastBlock(calc, powers, &c[4 * (blockCount - 1)], amplitude));
    std::vector<Ciphertext> giants;
    giants.reserve(parameter_.log_cosine_blocks);
    for (u64 k = 0; k < parameter_.log_cosine_blocks; ++k)
        giants.push_back(calc.chebyshevDouble(k == 0 ? powers.t4 : giants.back()));
    out = BlockSum(calc, std::move(blocks), std::move(giants)).evaluate();

    doubleAngles(out, amplitude);
    if (factor < 0 && parameter_.arcsine_degree == 1) evaluator_->negate(out, out);
}

/// If x is A cos(t), 2 x^2 - A^2 is A^2 cos(2t).
void BootstrapperImpl::doubleAngles(Ciphertext& x, double amplitude) const {
    const Calculator calc(context_, *evaluator_);
    // The lowest level of the large primes. The rescale from there leaves a correction in the value.
    const u64 lowest = context_->parameter.encryption_level + 1;
    for (u64 i = 0; i < parameter_.double_angle_count; ++i) {
        double subtrahend = amplitude * amplitude;
        if (x.getLevel() == lowest)
            subtrahend *=
                std::pow(0.5, static_cast<double>(context_->scale_factors.level_correction[lowest]));
        else
            amplitude = subtrahend;
        x = calc.plus(calc.rescaled(calc.twice(calc.product(x, x))), -subtrahend);
    }
}

void BootstrapperImpl::arcsineApprox(const Ciphertext& in, Ciphertext& out, u64 degree, double factor) const {
    const Calculator calc(context_, *evaluator_);
    const auto scaled = [&](const Ciphertext& a, double c) { return calc.rescaled(calc.product(a, c)); };
    const auto times = [&](const Ciphertext& a, const Ciphertext& b) {
        return calc.rescaled(calc.product(a, b));
    };
    if (degree == 3) {
        // factor (s + s^3 / 6)
        const Ciphertext u = calc.plus(times(in, in), 6.0);
        out = times(scaled(in, factor / 6.0), u);
    } else if (degree == 7) {
        // factor (s + s^3 / 6 + 3 s^5 / 40 + 5 s^7 / 112) = factor 5/112 s (s^2 + p) (s^4 + q s^2 + r)
        constexpr double p = 2.966683928392619, q = -1.2866839283926188, r = 7.550517864616794;
        const double h = factor * 5.0 / 112.0;
        const Ciphertext u = times(in, in);
        Ciphertext v = calc.sum(calc.product(u, u), calc.product(u, q));
        v = calc.plus(calc.rescaled(std::move(v)), r);
        const Ciphertext x = times(scaled(in, h), calc.plus(u, p));
        out = times(x, v);
    } else {
        out = in;
    }
}

} // namespace Torvo
