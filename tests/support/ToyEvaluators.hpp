#pragma once

#include "support/Scheme.hpp"

#include <Torvo/HomEvaluator.hpp>
#include <Torvo/KeyGenerator.hpp>

#include <gtest/gtest.h>

#include <type_traits>

/// What tests of the evaluator start from.
namespace Torvo::test {

using Module = CiphertextBase<EncryptionType::MLWE>;
using BothTypes = testing::Types<Ciphertext, Module>;

/// A test of what ciphertexts of both types can do, each on its toy scheme.
template <class T>
class OnBothTypes : public testing::Test {
protected:
    static constexpr EncryptionType type =
        std::is_same_v<T, Ciphertext> ? EncryptionType::RLWE : EncryptionType::MLWE;

    const SchemeBase<type>& scheme =
        SchemeBase<type>::of(type == EncryptionType::RLWE ? ParameterPreset::FX : ParameterPreset::SD3D6R2);
};

/// With the conjugation key and the rotation keys of the powers of two and their complements, of the toy
/// scheme, made once per program.
inline const HomEvaluator& bundledEvaluator() {
    static const HomEvaluator evaluator = [] {
        const Scheme& scheme = Scheme::of(ParameterPreset::FX);
        const KeyPack pack(scheme.context);
        const KeyGenerator generator(scheme.context, scheme.secretKey, pack);
        generator.genRotKeyBundle();
        generator.genConjKey();
        return HomEvaluator(scheme.context, pack);
    }();
    return evaluator;
}

} // namespace Torvo::test
