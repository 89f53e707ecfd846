#pragma once

#include "bootstrap/BootstrapperImpl.hpp"
#include "support/BootScheme.hpp"
#include "support/ErrorBits.hpp"
#include "support/SimulatedBootstrap.hpp"

#include <gtest/gtest.h>

#include <optional>
#include <vector>

namespace Torvo::test {

/// A preset with the keys to bootstrap messages of some numbers of slots.
class BootRoundTrip {
public:
    enum class Rotations { Batched, Sequential };

    BootRoundTrip(ParameterPreset preset, const std::vector<u64>& logSlots,
                  Rotations rotations = Rotations::Sequential)
        : context_(makeContext(preset)), secretKey_(context_),
          isSequential_(rotations == Rotations::Sequential) {
        if (isSparseSecretEncapsulationSupported(context_))
            sparse_ = makeContext(getSparseParameterPresetFor(preset));
        const KeyGenerator generator =
            sparse_ ? KeyGenerator(context_, *sparse_, secretKey_) : KeyGenerator(context_, secretKey_);
        generator.genMultKey();
        generator.genConjKey();
        if (sparse_) generator.genSparseSecretEncapsulationKey();
        for (const u64 count : logSlots) generator.genRotKeysForBootstrap(count, isSequential_);
        const HomEvaluator evaluator(context_, generator.getKeyPack());
        bootstrapper_.emplace(evaluator, sparse_, logSlots.front(), isSequential_);
        for (const u64 count : logSlots) bootstrapper_->makeBootConstants(count);
    }

    /// A random message of parts up to 1 comes back, at the right level.
    void expectMessageBack(u64 logSlots, bool isComplex) const {
        SCOPED_TRACE(testing::Message() << "log slots " << logSlots);
        const Message m = Seeded(static_cast<u64>(context_->parameter.preset)).message(logSlots);
        Ciphertext x(context_);
        Encryptor(context_).encrypt(m, secretKey_, x, bootstrapper_->getMinLevelForBootstrap(), 0);
        bootstrapper_->bootstrap(x, x, isComplex);
        const bool isShort = logSlots == 0 && context_->parameter.preset == ParameterPreset::FVa;
        EXPECT_EQ(x.getLevel(), bootstrapper_->getLevelAfterFullSlotBootstrap() + (isShort ? 1 : 0));
        EXPECT_EQ(x.getLogSlots(), logSlots);
        Message got;
        Decryptor(context_).decrypt(x, secretKey_, got);
        const BootErrorModel errors(context_, bootstrapper_->getParameter());
        if (isComplex)
            EXPECT_LT(maxError(got, m), errors.complexBound());
        else
            EXPECT_LT(maxError(got, realPart(m)), errors.realBound());
        if (logSlots >= 7) expectPredictedMean(got, isComplex ? m : realPart(m), logSlots, isComplex);
    }

    u64 logFullSlots() const { return getLogFullSlots(context_); }

private:
    /// Many slots have a mean that hardly differs from one key to the next.
    void expectPredictedMean(const Message& got, const Message& m, u64 logSlots, bool isComplex) const {
        const Message simulated =
            SimulatedBootstrap(context_, logSlots, isSequential_).bootstrap(m, isComplex);
        EXPECT_NEAR(ErrorBits(got, m).mean(), ErrorBits(simulated, m).mean(), 0.5);
    }

    Context context_;
    std::optional<Context> sparse_;
    SecretKey secretKey_;
    bool isSequential_;
    std::optional<BootstrapperImpl> bootstrapper_;
};

} // namespace Torvo::test
