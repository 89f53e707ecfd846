#pragma once

#include "core/Integers.hpp"
#include "crypto/EncryptionKeyImpl.hpp"
#include "crypto/EvaluationKeyImpl.hpp"

#include <Torvo/Context.hpp>
#include <Torvo/EncryptionKey.hpp>
#include <Torvo/EvaluationKey.hpp>
#include <Torvo/SparseSecretEncapsulationKey.hpp>

#include <memory>
#include <utility>

/// Keys with data unset, to generate or to load into; every word is written before the user can see them. The
/// public constructors write zeros, which takes time for hundreds of megabytes.
namespace Torvo {

/// The kinds of switching keys, by their letter in files.
enum class KeyKind : char {
    Mult = 'm',
    Conj = 'c',
    Rot = 'r',
    ModPack = 'p',
    RingSwitch = 'w',
    Encapsulation = 's'
};

inline std::unique_ptr<EvaluationKey> unsetKey(const Context& context, KeyKind kind, u64 rotationIndex = 0) {
    return std::make_unique<EvaluationKey>(
        std::make_unique<EvaluationKeyImpl>(context, static_cast<char>(kind), rotationIndex));
}

inline std::unique_ptr<SparseSecretEncapsulationKey> unsetEncapsulationKey(const Context& context,
                                                                           const Context& context_sparse) {
    return std::make_unique<SparseSecretEncapsulationKey>(
        std::move(*unsetKey(context_sparse, KeyKind::Encapsulation)),
        std::move(*unsetKey(context, KeyKind::Encapsulation)));
}

inline std::unique_ptr<EncryptionKey> unsetEncryptionKey(const Context& context) {
    return std::make_unique<EncryptionKey>(std::make_unique<EncryptionKeyImpl>(context));
}

} // namespace Torvo
