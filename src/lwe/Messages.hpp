#pragma once

#include "context/SameRing.hpp"

/// The exact texts of the exceptions that only plain LWE has.
namespace Torvo::message {

inline constexpr const char* decryptOtherDimension = "[decrypt] ctxt and sk have different dimension";

inline constexpr RefusedMeeting encryptNumberUnderForeignSecret{
    "the secret key has other primes", "the encryptor's context",
    "make the encryptor with the context the key was made with"};
inline constexpr RefusedMeeting decryptNumberWithForeignSecret{
    "the secret key has other primes", "the decryptor's context",
    "make the decryptor with the context the key was made with"};

} // namespace Torvo::message
