#pragma once

#include "Handles.hpp"

#include <Torvo/LWECiphertext.hpp>
#include <Torvo/LWEContext.hpp>
#include <Torvo/LWESecretKey.hpp>

namespace TorvoPython {

/// A context of plain LWE as Python sees it. It never changes, so it needs no lock.
struct SharedLWEContext {
    Torvo::LWE::Context context;
};

using LWECiphertext = Torvo::LWE::Ciphertext;
using LWESecretKey = Torvo::LWE::SecretKey;
using LWECiphertextHandle = Guarded<LWECiphertext>;
using LWESecretKeyHandle = Guarded<LWESecretKey>;

} // namespace TorvoPython
