#include "support/LinearMaps.hpp"

#include <Torvo/LinearFunctions.hpp>

#include <gtest/gtest.h>

#include <chrono>
#include <cmath>

namespace Torvo {
namespace {

using namespace test;

/// A matrix of 64 diagonals, on all slots and on a batch.
TEST(EncodedTransformRealPreset, GivesTheProductWithAMatrixOf64Diagonals) {
    const Scheme& scheme = Scheme::of(ParameterPreset::ST11);
    const u64 level = 5, log_full = scheme.logFullSlots();
    Seeded random(91);
    SCOPED_TRACE(random.describe());
    const KeyPack pack(scheme.context);
    const KeyGenerator generator(scheme.context, scheme.secretKey, pack);
    const HomEvaluator evaluator(scheme.context, pack);
    const Matrix matrix = randomMatrix(random, 64, 64);
    const LinearTransform transform = LinearTransform::fromMatrix(matrix);
    for (const u64 log_slots : {u64{6}, log_full}) {
        for (const u64 index : transform.getRotationIndices(scheme.context, log_slots, level))
            generator.genRotKeyIfNotExist(static_cast<long>(index));
        const Message message = random.message(log_slots);
        const Ciphertext in = scheme.encrypt(message, level + 1);
        Ciphertext out(scheme.context);
        EncodedTransform(scheme.context, transform, log_slots, level).apply(evaluator, in, out);
        EXPECT_LT(maxError(scheme.decrypt(out), productOf(matrix, 64, message)),
                  transformBound(scheme.context, level, 128))
            << log_slots;
    }
}

/// What the function makes of it, beside its plan.
TEST(EncodedTransformRealPreset, APlanOfTheFunctionPredictsErrorAndTime) {
    const Scheme& scheme = Scheme::of(ParameterPreset::ST11);
    const Context& context = scheme.context;
    const u64 level = 8, log_full = scheme.logFullSlots();
    Seeded random(92);
    SCOPED_TRACE(random.describe());
    const Matrix matrix = randomMatrix(random, 64, 64);
    const CachedTransform transform = LinearTransform::fromMatrix(matrix);
    const KeyPack pack(context);
    const KeyGenerator generator(context, scheme.secretKey, pack);
    for (const u64 index : transform.getRotationIndices(context, log_full)) generator.genLeftRotKey(index);
    const HomEvaluator evaluator(context, pack);
    const Message message = random.message(log_full), expected = productOf(matrix, 64, message);
    const Plan plan(context);
    PlannedCiphertext planned = plan.encrypt(message, level);
    applyTransform(plan, planned, transform, planned);
    const double estimate = plan.estimateSeconds();
    const Ciphertext in = scheme.encrypt(message, level);
    Ciphertext out(context);
    applyTransform(evaluator, in, transform, out);
    EXPECT_EQ(plan.getReport().constantBytes, transform.getEncodedBytes());
    const Message got = scheme.decrypt(out);
    double sum = 0;
    for (u64 i = 0; i < got.getSize(); ++i) sum += std::norm(got[i] - expected[i]);
    const double error = std::sqrt(sum / static_cast<double>(got.getSize()));
    EXPECT_LT(std::abs(std::log2(error / planned.getError())), 0.5);
    const auto start = std::chrono::steady_clock::now();
    applyTransform(evaluator, in, transform, out);
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    // Other programs may take the processor from either.
    EXPECT_GT(estimate, 0.1 * seconds);
    EXPECT_LT(estimate, 10 * seconds);
}

} // namespace
} // namespace Torvo
