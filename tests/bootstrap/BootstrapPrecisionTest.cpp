#include "support/BootScheme.hpp"
#include "support/ErrorBits.hpp"
#include "support/SimulatedBootstrap.hpp"

#include <Torvo/Encryptor.hpp>

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>

// The mean precision of a bootstrap on the toy preset is the one that docs/bootstrapping.md derives. At real
// degrees bench/BootstrapPrecision and BootstrapRealPresetTest check that.

namespace Torvo {
namespace {

using test::boot;
using test::ErrorBits;
using test::SimulatedBootstrap;

constexpr double tolerance = 1.5; // bits

Ciphertext encrypted(const Message& message, u64 level) {
    Ciphertext out(boot().scheme.context);
    boot().scheme.encryptor.encrypt(message, boot().scheme.secretKey, out, level, 0);
    return out;
}

struct Form {
    const char* name;
    u64 logSlots;
    bool isSequential, isComplex, isExtended;
};

class BootstrapPrecision : public testing::TestWithParam<Form> {
protected:
    Message bootstrapped(const Message& m) const {
        const BootstrapperImpl& bootstrapper = boot().of(form.isSequential);
        Ciphertext x = encrypted(m, form.isExtended ? 4 : 3);
        if (form.isExtended)
            bootstrapper.bootstrapExtended(x, x, form.isComplex);
        else
            bootstrapper.bootstrap(x, x, form.isComplex);
        return boot().scheme.decrypt(x);
    }
    Message simulated(const Message& m) {
        return form.isExtended ? simulation.bootstrapExtended(m, form.isComplex)
                               : simulation.bootstrap(m, form.isComplex);
    }

    Form form = GetParam();
    SimulatedBootstrap simulation{boot().scheme.context, form.logSlots, form.isSequential};
};

TEST_P(BootstrapPrecision, IsAsPredicted) {
    ErrorBits measured, predicted;
    for (const u64 seed : {101, 102, 103}) {
        Message m = test::Seeded(seed).message(form.logSlots);
        if (!form.isComplex) m = test::realPart(m);
        measured.take(bootstrapped(m), m);
        for (int again = 0; again < 16; ++again)
            predicted.take(simulated(m), m); // few slots: steadies the mean
    }
    SCOPED_TRACE("seeds 101, 102, 103");
    EXPECT_NEAR(measured.mean(), predicted.mean(), tolerance);
}

INSTANTIATE_TEST_SUITE_P(OfEveryForm, BootstrapPrecision,
                         testing::Values(Form{"Complex", 5, false, true, false},
                                         Form{"Real", 5, true, false, false},
                                         Form{"SparseComplex", 3, true, true, false},
                                         Form{"ExtendedComplex", 5, false, true, true},
                                         Form{"SparseExtendedReal", 3, true, false, true}),
                         [](const auto& given) { return given.param.name; });

// The effect of the cosine polynomial's own error of 9e-15: it grows by 4 in each double-angle step, and by
// the amplitude; the rest of the tolerance is for doubles.
TEST(SimulatedBootstrap, WithoutRoundingsLeavesTheBend) {
    const Context& context = boot().scheme.context;
    const Message m = test::realPart(test::Seeded(104).message(5));
    const Message got = test::SimulatedBootstrap(context, 5, true, {false, false, false, false, false, false})
                            .bootstrap(m, false);
    const double allowed = 9.0e-15 * 64 / (2 * std::numbers::pi * boot().eps()) + 0x1p-50;
    for (u64 i = 0; i < m.getSize(); ++i) {
        const double part = m[i].real();
        // The next term of the series is below (2 pi eps)^2 / 20 of this one.
        EXPECT_NEAR(got[i].real(), part - boot().bend(part), allowed + boot().bend(part) * 0x1p-20) << part;
    }
}

// Each phase makes an error, and all together make a larger one.
TEST(SimulatedBootstrap, LosesBitsInEveryPhase) {
    const Context context = makeContext(ParameterPreset::FGa); // nothing is run there
    const Message m = test::Seeded(105).message(10);
    const auto result = [&](const test::ErrorSources& sources) {
        return SimulatedBootstrap(context, 15, true, sources).bootstrap(m, true);
    };
    const test::ErrorSources none{false, false, false, false, false, false};
    const Message exact = result(none), rounded = result({});
    for (const auto phase :
         {&test::ErrorSources::scales, &test::ErrorSources::slotToCoeff, &test::ErrorSources::coeffToSlot,
          &test::ErrorSources::cosine, &test::ErrorSources::doubleAngle, &test::ErrorSources::arcsine}) {
        test::ErrorSources alone = none;
        alone.*phase = true;
        const Message got = result(alone);
        EXPECT_GT(test::maxError(got, exact), 0x1p-45);
        EXPECT_GT(ErrorBits(got, exact).mean(), ErrorBits(rounded, exact).mean());
    }
}

// ---- what the flag of extended bootstrapping means

// The second pass treats an imaginary part as an error of the first, four times as large, and returns it with
// sixteen times the bend.
TEST(BootstrapExtended, BringsBackWhatIsImaginaryInAMessageSaidToBeReal) {
    const Message m = test::Seeded(106).message(5);
    Ciphertext x = encrypted(m, 4);
    boot().batched.bootstrapExtended(x, x, false);
    const Message got = boot().scheme.decrypt(x);
    EXPECT_LT(test::maxError(got, m), 16 * boot().bend(1) + 2 * boot().noise());
    EXPECT_GT(test::maxError(test::imagPart(got), test::imagPart(m)), boot().bend(1));
    EXPECT_LT(test::maxError(test::realPart(got), test::realPart(m)), boot().bend(1) / 4 + boot().noise());
}

} // namespace
} // namespace Torvo
