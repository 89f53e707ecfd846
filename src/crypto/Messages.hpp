#pragma once

#include "context/SameRing.hpp"

/// The exact texts of the exceptions of the crypto layer.
namespace Torvo::message {

inline constexpr const char* cannotSeed = "Cannot seed the random generator: "; // then the source
/// Follows the source and the reason in brackets.
inline constexpr const char* letSourceBeUsed =
    "). Let the process use this source, which a sandbox may forbid, and try again.";

inline constexpr const char* keyNotOfRankOne =
    "[Secret Key] The number of RLWE secret key must be equal to one.";
inline constexpr const char* keyNotRandom = "The secret key is not randomly generated";
inline constexpr const char* savedKeyNotRLWE =
    "[load SecretKey] The serialized secret key is not for RLWE encryption.";
inline constexpr const char* savedKeyNotMLWE =
    "[load SecretKey] The serialized secret key is not for MLWE encryption.";

inline constexpr const char* ciphertextTooSmall = "The size of a ciphertext should be greater than 1";
inline constexpr const char* ciphertextOfOtherType =
    "[Ciphertext] The parameter does not support the encryption type of the creating ciphertext";
inline constexpr const char* ciphertextDoesNotFit =
    "The level of input ciphertext does not fit in current context";
inline constexpr const char* compactCiphertextEmpty =
    "[CompactCiphertext] It is empty, so there is nothing to expand or save; assign what "
    "Encryptor::encryptCompact returns, or load a file first";

inline constexpr const char* noEncryptionKey = "[encrypt] Failed to load the encryption key";
// The texts of the two paths of encryption differ by a full stop.
inline constexpr const char* aboveEncryptionLevelUnderPublicKey =
    "[encrypt] Level of an input Plaintext cannot be greater than encryption level.";
inline constexpr const char* aboveEncryptionLevelUnderSecretKey =
    "[encrypt] Level of an input Plaintext cannot be greater than encryption level";

inline constexpr const char* notOnSlots = "The operand have to encode the message on its slots";
inline constexpr const char* notOnCoefficients = "The operand have to encode the message on its coefficients";
inline constexpr const char* decryptWrongSize =
    "[decrypt] Number of polynomials of MLWE ciphertext is invalid";
inline constexpr const char* partialDecryptWrongSize = "[partialDecrypt] Size of Ciphertext should be 2";

inline constexpr RefusedMeeting encryptUnderForeignKey{
    "the encryption key is of another ring", "the encryptor's context",
    "make the encryptor with the context the key was made with"};
inline constexpr RefusedMeeting encryptUnderForeignSecret{
    "the secret key is of another ring", "the encryptor's context",
    "make the encryptor with the context the key was made with"};
inline constexpr RefusedMeeting decryptWithForeignSecret{
    "the secret key is of another ring", "the decryptor's context",
    "make the decryptor with the context the key was made with"};
inline constexpr RefusedMeeting encryptionKeyOfForeignSecret{
    "the secret key is of another ring", "the context of the encryption key",
    "make the encryption key with the context of the secret key"};

inline constexpr const char* encryptionKeyOnTwoDevices =
    "Polynomials in a ciphertext are in different devices";

inline constexpr const char* noSuchPath = "Cannot find path "; // and the path
/// Followed by the reason.
inline constexpr const char* cannotUnload =
    "[KeyPack] a key can be unloaded only when it can be read again, but ";
inline constexpr const char* noKeyDirectory =
    "the pack has no key directory; set one with setKeyDirPath and save the pack into it";
/// These two are followed by the path and `saveFirst`.
inline constexpr const char* noKeyFile = "there is no file ";
inline constexpr const char* otherKeyInFile = "another key stands in ";
inline constexpr const char* saveFirst = "; save the pack into its directory first";
inline constexpr const char* keyPackWithoutEncapsulation =
    "[KeyPack] context does not support sparse secret encapsulation";
inline constexpr const char* keyPackOtherSparseContext =
    "[KeyPack] parameter of context and context_sparse does not match";

inline constexpr const char* keyGeneratorOtherContext = "[KeyGenerator] context and secret key don't match";
inline constexpr const char* keyGeneratorWithoutEncapsulation =
    "[KeyGenerator] context does not support sparse secret encapsulation";
inline constexpr const char* keyGeneratorOtherSparseContext =
    "[KeyGenerator] parameter of context and context_sparse does not match";
inline constexpr RefusedMeeting keyGeneratorForeignPack{"the key pack is of another ring",
                                                        "the key generator's context",
                                                        "make the generator with a pack of its own context"};
inline constexpr const char* keyGeneratorWithoutSecretKey =
    "[KeyGenerator] The KeyGenerator was constructed without a default secret key";
inline constexpr const char* keyGeneratorWithoutSparseContext =
    "Key Generator is not constructed for the parameter supporting sparse secret encapsulation";
inline constexpr const char* wrongRotationIndex = "Wrong rotation index";

} // namespace Torvo::message
