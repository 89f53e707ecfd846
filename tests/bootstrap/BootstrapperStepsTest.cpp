#include "support/BootScheme.hpp"
#include "support/CiphertextWords.hpp"
#include "support/UsedOutputs.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <map>
#include <memory>
#include <numbers>
#include <optional>
#include <utility>
#include <vector>

// Bootstrapping written out one operation after the other. Another order would have other roundings, and so
// other noise: no bound on errors distinguishes them, but the words of the result do.

namespace Torvo {
namespace {

using test::boot;
using test::toy;

const ContextContent& ring() {
    return *toy().context;
}
const HomEvaluatorImpl& evaluator() {
    return *toy().evaluator.getImpl();
}

Ciphertext blank() {
    return Ciphertext(toy().context);
}

// ---- single operations

Ciphertext mr(const Ciphertext& a, const Ciphertext& b) {
    Ciphertext out = blank();
    evaluator().multWithoutRescale(a, b, out);
    return out;
}
Ciphertext mr(const Ciphertext& a, double c) {
    Ciphertext out = blank();
    evaluator().multWithoutRescale(a, std::complex<double>(c, 0.0), out);
    return out;
}
template <class Factor>
Ciphertext mult(const Ciphertext& a, const Factor& b) {
    Ciphertext out = blank();
    evaluator().mult(a, b, out);
    return out;
}
Ciphertext tensor(const Ciphertext& a, const Ciphertext& b) {
    Ciphertext out = blank();
    evaluator().tensor(a, b, out);
    return out;
}
Ciphertext relinearized(const Ciphertext& a) {
    Ciphertext out = blank();
    evaluator().relinearize(a, out);
    return out;
}
Ciphertext rescaled(Ciphertext a) {
    evaluator().rescale(a);
    return a;
}
Ciphertext timesInteger(const Ciphertext& a, long n) {
    Ciphertext out = blank();
    evaluator().multInteger(a, n, out);
    return out;
}
template <class Summand>
Ciphertext sum(const Ciphertext& a, const Summand& b) {
    Ciphertext out = blank();
    evaluator().add(a, b, out);
    return out;
}
template <class Summand>
Ciphertext difference(const Ciphertext& a, const Summand& b) {
    Ciphertext out = blank();
    evaluator().sub(a, b, out);
    return out;
}
Ciphertext oneDown(const Ciphertext& a) {
    Ciphertext out = blank();
    evaluator().levelDownOne(a, out);
    return out;
}
Ciphertext down(const Ciphertext& a, u64 level) {
    Ciphertext out = blank();
    evaluator().levelDown(a, level, out);
    return out;
}
Ciphertext left(const Ciphertext& a, u64 index) {
    Ciphertext out = blank();
    evaluator().leftRotate(a, index, out);
    return out;
}
Ciphertext right(const Ciphertext& a, u64 index) {
    Ciphertext out = blank();
    evaluator().rightRotate(a, index, out);
    return out;
}
Ciphertext conjugate(const Ciphertext& a) {
    Ciphertext out = blank();
    evaluator().conjugate(a, out);
    return out;
}
Ciphertext timesImagUnit(const Ciphertext& a) {
    Ciphertext out = blank();
    evaluator().multImagUnit(a, out);
    return out;
}

// ---- the sine

/// T_2n of T_n.
Ciphertext chebyshevDouble(const Ciphertext& a) {
    return difference(timesInteger(rescaled(mr(a, a)), 2), 1.0);
}

std::vector<Ciphertext> blocksOf(const std::vector<double>& c, double A, const Ciphertext& t2,
                                 const Ciphertext& t4) {
    const Ciphertext t2a = oneDown(t2), t2b = oneDown(t2a), t4b = oneDown(t4);
    const Ciphertext t6 = difference(rescaled(timesInteger(mr(t2a, t4), 2)), t2b);
    std::vector<Ciphertext> P;
    const u64 last = c.size() / 4 - 1;
    for (u64 j = 0; j < last; ++j) {
        const Ciphertext s =
            sum(sum(mr(t2b, A * c[4 * j + 1]), mr(t4b, A * c[4 * j + 2])), mr(t6, A * c[4 * j + 3]));
        P.push_back(sum(rescaled(s), A * c[4 * j]));
    }
    const Ciphertext s = rescaled(mr(t2, A * c[4 * last + 3]));
    Ciphertext w = mr(difference(timesInteger(t4, 2), 1.0), s);
    w = sum(sum(w, mr(t2a, A * c[4 * last + 1])), mr(t4, A * c[4 * last + 2]));
    P.push_back(sum(rescaled(w), A * c[4 * last]));
    return P;
}

Ciphertext ofFour(std::vector<Ciphertext> P, std::vector<Ciphertext> U) {
    P[3] = rescaled(mr(P[3], U[0]));
    U[0] = oneDown(U[0]);
    Ciphertext acc = tensor(P[1], U[0]);
    P[2] = sum(P[2], P[3]);
    acc = sum(acc, tensor(P[2], U[1]));
    P[2] = rescaled(relinearized(acc));
    P[0] = oneDown(P[0]);
    return sum(P[0], P[2]);
}

Ciphertext ofEight(std::vector<Ciphertext> P, std::vector<Ciphertext> U) {
    P[7] = rescaled(mr(P[7], U[0]));
    U[0] = oneDown(U[0]);
    Ciphertext acc = tensor(P[5], U[0]);
    P[6] = sum(P[6], P[7]);
    acc = sum(acc, tensor(P[6], U[1]));
    P[6] = rescaled(relinearized(acc));
    P[4] = sum(oneDown(P[4]), P[6]);
    P[3] = rescaled(mr(P[3], U[0]));
    P[1] = oneDown(P[1]);
    U[0] = oneDown(U[0]);
    acc = tensor(P[1], U[0]);
    P[2] = sum(oneDown(P[2]), P[3]);
    U[1] = oneDown(U[1]);
    acc = sum(acc, tensor(P[2], U[1]));
    acc = sum(acc, tensor(U[2], P[4]));
    P[1] = rescaled(relinearized(acc));
    return sum(down(P[0], P[1].getLevel()), P[1]);
}

Ciphertext ofAnyNumber(std::vector<Ciphertext> P, std::vector<Ciphertext> U) {
    for (u64 t = 0; t < U.size(); ++t) {
        const u64 w = u64{1} << t;
        u64 i = P.size() - 2 * w;
        P[i + w] = rescaled(mr(P[i + w], U[t]));
        P[i] = sum(P[i], P[i + w]);
        if (i == 0) break;
        U[t] = oneDown(U[t]);
        while (i > 0) {
            i -= 2 * w;
            P[i + w] = mr(P[i + w], U[t]);
            P[i] = rescaled(sum(mr(P[i], 1.0), P[i + w]));
        }
    }
    return P[0];
}

Ciphertext cosine(const BootParameter& bp, const Ciphertext& in, double factor) {
    double A = 1.0;
    if (bp.arcsine_degree == 1) {
        A = std::fabs(factor);
        for (u64 i = 0; i < bp.double_angle_count; ++i) A = std::sqrt(A);
    }
    const Ciphertext t2 = chebyshevDouble(in), t4 = chebyshevDouble(t2);
    std::vector<Ciphertext> P = blocksOf(bp.cosine_coefficients, A, t2, t4), U;
    for (u64 k = 0; k < bp.log_cosine_blocks; ++k) U.push_back(chebyshevDouble(k == 0 ? t4 : U[k - 1]));
    Ciphertext out = bp.log_cosine_blocks == 2   ? ofFour(P, U)
                     : bp.log_cosine_blocks == 3 ? ofEight(P, U)
                                                 : ofAnyNumber(P, U);
    const u64 b = ring().parameter.encryption_level + 1;
    for (u64 i = 0; i < bp.double_angle_count; ++i) {
        const bool crosses = out.getLevel() == b;
        out = rescaled(timesInteger(mr(out, out), 2));
        double k = A * A;
        if (crosses)
            k = A * A * std::pow(0.5, static_cast<double>(ring().scale_factors.level_correction[b]));
        else
            A = k;
        out = difference(out, k);
    }
    if (factor < 0 && bp.arcsine_degree == 1) evaluator().negate(out, out);
    return out;
}

Ciphertext arcsine(const Ciphertext& s, u64 degree, double factor) {
    if (degree == 3) return mult(mult(s, factor / 6.0), sum(mult(s, s), 6.0));
    if (degree != 7) return s;
    const double p = 2.966683928392619, q = -1.2866839283926188, r = 7.550517864616794;
    const double h = factor * 5.0 / 112.0;
    Ciphertext u = mult(s, s);
    const Ciphertext v = sum(rescaled(sum(mr(u, u), mr(u, q))), r);
    u = sum(u, p);
    u = mult(mult(s, h), u);
    return mult(u, v);
}

Ciphertext withoutMultiples(const BootParameter& bp, const Ciphertext& in, double factor) {
    const auto& scales = ring().scale_factors;
    const auto q0 = static_cast<double>(ring().primes.getPrime(0));
    const double K = bp.range_bound;
    Ciphertext t = in;
    if (bp.separate_normalization)
        t = rescaled(mr(t, std::pow(2.0, scales.log_scale[ring().parameter.chain_length - 1]) / q0 /
                               (2 * K * static_cast<double>(bp.post_raise_factor))));
    t = difference(t, 0.25 / K);
    const double e = static_cast<double>(scales.level_correction[ring().parameter.encryption_level + 1]) -
                     scales.log_scale[0];
    const double f =
        std::pow(2.0, e) * q0 / static_cast<double>(bp.pre_raise_factor) * factor / (2 * std::numbers::pi);
    return arcsine(cosine(bp, t, f), bp.arcsine_degree, f);
}

/// A separate bootstrapper, whose numbers can be changed.
struct Changeable {
    BootstrapperImpl impl{toy().evaluator, std::nullopt, 0, false};
    BootParameter& parameter = const_cast<BootParameter&>(impl.getParameter());
};

Ciphertext argument(u64 seed) {
    return boot().encryptAt(test::realPart(test::Seeded(seed).message(5)), 21);
}

TEST(StepsOfTheSine, OfTheToyPresetAreTheseForEitherSign) {
    const Ciphertext y = argument(61);
    for (const double factor : {1.0, -0.375}) {
        Ciphertext out = blank();
        boot().batched.removeI(y, out, factor);
        EXPECT_TRUE(test::sameWords(out, withoutMultiples(boot().parameter, y, factor)));
    }
}

TEST(StepsOfTheSine, AreTheseForAnyNumberOfBlocks) {
    const Ciphertext y = argument(62);
    for (const u64 g : {0, 1, 2, 3, 4}) {
        SCOPED_TRACE(g);
        Changeable own;
        test::Seeded random(g);
        own.parameter.cosine_coefficients.resize(u64{4} << g);
        for (auto& c : own.parameter.cosine_coefficients) c = random.real(-0.25, 0.25);
        own.parameter.log_cosine_blocks = g;
        own.parameter.double_angle_count = 2;
        own.parameter.arcsine_degree = g % 2 == 0 ? 3 : 1; // without and with an amplitude
        Ciphertext out = blank();
        own.impl.cosineApprox(y, out, 0.7);
        EXPECT_TRUE(test::sameWords(out, cosine(own.parameter, y, 0.7)));
    }
}

TEST(StepsOfTheSine, AreTheseWithANormalizationAndAnArcsine) {
    for (const u64 degree : {1, 3, 7}) {
        SCOPED_TRACE(degree);
        Changeable own;
        own.parameter.separate_normalization = true;
        own.parameter.post_raise_factor = 11;
        own.parameter.range_bound = 256.0 / 11;
        own.parameter.double_angle_count = 2;
        own.parameter.arcsine_degree = degree;
        const Ciphertext y = argument(63);
        Ciphertext out = y;
        own.impl.removeI(out, out, 0.5);
        EXPECT_TRUE(test::sameWords(out, withoutMultiples(own.parameter, y, 0.5)));
    }
}

// ---- the linear transforms

const BootConstants& constants(u64 logSlots) {
    static std::map<u64, std::unique_ptr<BootConstants>> made;
    auto& entry = made[logSlots];
    if (!entry)
        entry = std::make_unique<BootConstants>(logSlots, boot().parameter.coeff_to_slot_constant,
                                                boot().parameter.slot_to_coeff_constant, toy().context,
                                                evaluator().getEnDecoder());
    return *entry;
}

std::vector<Ciphertext> turnedByBabySteps(const RadixDecomposition& R, u64 s, const Ciphertext& X,
                                          bool sequential) {
    std::vector<Ciphertext> B;
    if (sequential) {
        B.push_back(X);
        for (u64 j = 1; j < R.babySteps[s]; ++j) B.push_back(left(B[j - 1], R.step[s]));
    } else {
        evaluator().leftRotate(X, convertFromSgnIdx(R.getRotIndicesForBabyStep(s), toy().context), B);
    }
    return B;
}

/// G[k], the sum over j of P[k * baby + j] * B[j]; in a stage after the first the list lacks its first entry.
std::vector<Ciphertext> groups(const RadixDecomposition& R, u64 s, const std::vector<Plaintext>& P,
                               const std::vector<Ciphertext>& B) {
    const u64 baby = R.babySteps[s];
    std::vector<Ciphertext> G;
    for (u64 k = 0; k < R.giantSteps[s]; ++k) {
        Ciphertext g = blank();
        if (s == 0)
            evaluator().innerProduct(&P[k * baby], &P[k * baby] + baby, &B[0], g);
        else if (k == 0)
            evaluator().innerProduct(&P[0], &P[0] + baby - 1, &B[1], g);
        else
            evaluator().innerProduct(&P[k * baby - 1], &P[k * baby - 1] + baby, &B[0], g);
        G.push_back(g);
    }
    return G;
}

Ciphertext combinedInSequence(const RadixDecomposition& R, u64 s, const std::vector<Ciphertext>& G) {
    const u64 giant = R.giantSteps[s], gap = R.babySteps[s] * R.step[s];
    if (s == 0 && giant >= 3) {
        Ciphertext X = G[giant / 2 + 1];
        for (u64 u = 2; u <= giant; ++u) X = sum(right(X, gap), G[(giant / 2 + u) % giant]);
        return X;
    }
    Ciphertext X = G[giant - 1];
    for (u64 k = giant - 1; k >= giant / 2 + 1; --k) X = sum(left(X, gap), G[k - 1]);
    if (giant < 2) return X;
    Ciphertext T = right(G[0], gap);
    for (u64 k = 1; k + 1 <= giant / 2; ++k) T = right(sum(T, G[k]), gap);
    return sum(X, T);
}

Ciphertext stage(const RadixDecomposition& R, u64 s, const std::vector<Plaintext>& P, const Ciphertext& X,
                 bool sequential) {
    const std::vector<Ciphertext> G = groups(R, s, P, turnedByBabySteps(R, s, X, sequential));
    if (sequential) return combinedInSequence(R, s, G);
    Ciphertext out = blank();
    evaluator().rotSum(G, convertFromSgnIdx(R.getRotIndicesForGiantStep(s), toy().context), out);
    return out;
}

Ciphertext coeffToSlot(Ciphertext X, bool sequential) {
    const u64 L = X.getLogSlots();
    const RadixDecomposition R(L);
    for (u64 s = 0; s < R.numStages; ++s) // two at most in this ring: each is followed by its rescale
        X = rescaled(stage(R, s, constants(L).getInvV0(Device{})[s], X, sequential));
    const double root =
        std::cbrt(boot().parameter.coeff_to_slot_constant / std::pow(2.0, 5.0 - static_cast<double>(L)));
    for (u64 n = R.numStages; n < 2; ++n) X = rescaled(mr(X, root));
    return mr(X, root);
}

Ciphertext slotToCoeff(Ciphertext X, bool sequential) {
    const u64 L = X.getLogSlots();
    const RadixDecomposition R(L);
    const double root = std::cbrt(boot().parameter.slot_to_coeff_constant);
    for (u64 n = R.numStages; n < 3; ++n) X = rescaled(mr(X, root));
    for (u64 s = R.numStages; s-- > 0;)
        X = rescaled(stage(R, s, constants(L).getV0(Device{})[s], X, sequential));
    return X;
}

// ---- the flows

struct Flow {
    const BootstrapperImpl& bootstrapper;
    bool sequential;

    Ciphertext exceptTheSine(const Ciphertext& in) const {
        const BootParameter& bp = boot().parameter;
        const u64 L = in.getLogSlots();
        Ciphertext t = blank();
        if (in.getEncodingType() == EncodingType::Slot) {
            t = slotToCoeff(timesInteger(down(in, 3), static_cast<long>(bp.pre_raise_factor)), sequential);
        } else {
            t = in;
            t.setEncodingType(EncodingType::Slot);
            t = timesInteger(down(t, 0), static_cast<long>(bp.pre_raise_factor));
        }
        for (u64 i = 0; i < 2; ++i)
            if (t.getPoly(i).isNTT()) ring().primes.backwardNTT(t.getPoly(i), t.getPoly(i));
        bootstrapper.levelRecover(t, t);
        for (u64 i = 0; i < 2; ++i) ring().primes.forwardNTT(t.getPoly(i), t.getPoly(i));
        for (u64 i = L; i < 5; ++i) t = sum(t, left(t, u64{1} << i));
        return coeffToSlot(timesInteger(t, static_cast<long>(bp.post_raise_factor)), sequential);
    }
    Ciphertext real(const Ciphertext& in, double factor) const {
        const Ciphertext t = exceptTheSine(in);
        return withoutMultiples(boot().parameter, rescaled(sum(t, conjugate(t))), factor);
    }
    std::pair<Ciphertext, Ciphertext> parts(const Ciphertext& in, double factor) const {
        const Ciphertext t = exceptTheSine(in), u = conjugate(t);
        const auto sine = [&](const Ciphertext& x) {
            return withoutMultiples(boot().parameter, rescaled(x), factor);
        };
        return {sine(sum(t, u)), sine(timesImagUnit(difference(u, t)))};
    }
    Ciphertext once(const Ciphertext& in, bool isComplex, double factor) const {
        if (!isComplex) return real(in, factor);
        const auto [a, b] = parts(in, factor);
        return sum(a, timesImagUnit(b));
    }
    Ciphertext extended(const Ciphertext& in, bool isComplex) const {
        Ciphertext t = timesInteger(once(mult(in, std::pow(2.0, -20)), isComplex, 1.0), 1 << 20);
        Ciphertext out = timesInteger(difference(in, t), 1 << 2);
        out.setLogSlots(5);
        out = once(out, true, std::pow(2.0, -2));
        out.setLogSlots(in.getLogSlots());
        return sum(t, out);
    }
    std::pair<Ciphertext, Ciphertext> extendedParts(const Ciphertext& in) const {
        auto [a, b] = parts(mult(in, std::pow(2.0, -20)), std::pow(2.0, 19));
        a = sum(a, conjugate(a));
        b = sum(b, conjugate(b));
        Ciphertext r = timesInteger(difference(in, sum(a, timesImagUnit(b))), 1 << 2);
        r.setLogSlots(5);
        auto [real, imag] = parts(r, std::pow(2.0, -2));
        real.setLogSlots(in.getLogSlots());
        imag.setLogSlots(in.getLogSlots());
        return {sum(a, real), sum(b, imag)};
    }
};

class StepsOfABootstrap : public testing::TestWithParam<bool> {
protected:
    const BootstrapperImpl& b = boot().of(GetParam());
    Flow written{b, GetParam()};
    const std::vector<Ciphertext> outputs = test::usedOutputs(toy().context);
    u64 uses = 0;
    Ciphertext out = used(), imag = used();

    /// Each of the used outputs in turn: nothing of it may remain.
    Ciphertext used() { return outputs[uses++ % outputs.size()]; }

    static void expectSame(const Ciphertext& got, const Ciphertext& expected) {
        EXPECT_TRUE(test::sameWords(got, expected));
        EXPECT_EQ(got.getEncodingType(), expected.getEncodingType());
    }
};

TEST_P(StepsOfABootstrap, AreTheseForEveryNumberOfSlots) {
    for (u64 logSlots = 0; logSlots <= 5; ++logSlots) {
        SCOPED_TRACE(logSlots);
        const Ciphertext in = toy().encrypt(test::Seeded(70 + logSlots).message(logSlots), 4);
        b.bootstrap(in, out, false);
        expectSame(out, written.once(in, false, 1.0));
        out = used();
        b.bootstrap(in, out, true);
        expectSame(out, written.once(in, true, 1.0));
        out = used();
        b.bootstrap(in, out, imag);
        const auto [first, second] = written.parts(in, 1.0);
        expectSame(out, first);
        expectSame(imag, second);
    }
}

TEST_P(StepsOfABootstrap, AreTheseInHalves) {
    const Ciphertext in = toy().encrypt(test::Seeded(76).message(4), 5);
    b.levelDownAndSlotToCoeff(in, out);
    Ciphertext coefficients = slotToCoeff(down(in, 3), GetParam());
    coefficients.setEncodingType(EncodingType::Coefficient);
    for (u64 i = 0; i < 2; ++i) ring().primes.backwardNTT(coefficients.getPoly(i), coefficients.getPoly(i));
    expectSame(out, coefficients);
    for (const bool isComplex : {false, true}) {
        out = used();
        b.halfBoot(coefficients, out, isComplex);
        expectSame(out, written.once(coefficients, isComplex, 1.0));
        Ciphertext within = coefficients;
        b.halfBoot(within, within, isComplex);
        expectSame(within, out);
    }
}

TEST_P(StepsOfABootstrap, AreTheseInTwoPasses) {
    for (const u64 logSlots : {3, 5}) {
        SCOPED_TRACE(logSlots);
        const Ciphertext in = toy().encrypt(test::Seeded(77 + logSlots).message(logSlots), 6);
        for (const bool isComplex : {false, true}) {
            out = used();
            b.bootstrapExtended(in, out, isComplex);
            expectSame(out, written.extended(in, isComplex));
        }
        out = used();
        imag = used();
        b.bootstrapExtended(in, out, imag);
        const auto [first, second] = written.extendedParts(in);
        expectSame(out, first);
        expectSame(imag, second);
    }
}

// The toy preset has no gain after the raise. One slot needs no matrices, so its numbers can be changed.
TEST(Bootstrap, TakesTheGainAfterTheRaiseOutAgain) {
    const Message m(0, {0.75, -0.5});
    for (const bool separate : {false, true}) {
        SCOPED_TRACE(separate);
        Changeable own;
        own.parameter.post_raise_factor = 16;
        own.parameter.coeff_to_slot_constant /= 16;
        if (separate) { // a level for the division, and a double angle less for that
            own.parameter.separate_normalization = true;
            own.parameter.coeff_to_slot_constant = 1.0;
            own.parameter.range_bound = 14.0;
            own.parameter.double_angle_count = 2;
        }
        Ciphertext x = toy().encrypt(m, 3);
        own.impl.bootstrap(x, x, true);
        EXPECT_EQ(x.getLevel(), 12U);
        EXPECT_LT(test::maxError(toy().decrypt(x), m), 2 * boot().complexBound());
    }
}

INSTANTIATE_TEST_SUITE_P(InBothForms, StepsOfABootstrap, testing::Bool(),
                         [](const auto& form) { return form.param ? "Sequential" : "Batched"; });

} // namespace
} // namespace Torvo
