#include "support/LinearMaps.hpp"

#include <gtest/gtest.h>

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

} // namespace
} // namespace Torvo
