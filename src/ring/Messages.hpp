#pragma once

#include "context/SameRing.hpp"

/// The exact texts of the exceptions of ring switching and packing.
namespace Torvo::message {

inline constexpr const char* totalDimensionsDiffer = "The total dimension of the operands are different";
inline constexpr const char* ringSwitchingInNTTForm =
    "Polynomials should be of non-NTT form in ring switching.";
inline constexpr const char* totalDimensionDoesNotDivide =
    "The total dimension of op1 does not divide that of op2";
inline constexpr const char* vectorsMissDegree =
    "The number of LevelledVectors does not match to the degree of Polynomial";
inline constexpr const char* polynomialsMissDimension =
    "The number of Polynomials does not match to the dimension of LevelledVector";

inline constexpr const char* composeOutputDegree =
    "[compose] Degree of input ciphertext(s) should divide of degree output ciphertext";
inline constexpr const char* composeDimension =
    "[compose] The dimension of input ciphertext(s) should be equal to output ciphertext unless the case of "
    "embedding a single ciphertext";
inline constexpr const char* decomposeInputDegree =
    "[decompose] Degree of output ciphertext(s) should divide of degree input ciphertext";
inline constexpr const char* decomposeDimension = "[decompose] The dimension of output ciphertext(s) should "
                                                  "be equal to input ciphertext unless the case of "
                                                  "extracting a single ciphertext";
inline constexpr const char* decomposeLevel = "[decompose] The level of given ciphertext is more than the "
                                              "level of max encryption level of the output ciphertext(s)";
inline constexpr const char* modPackTotalDimension =
    "[modPack] Total dimension of encrypting messages of input and output does not match";
inline constexpr const char* modPackKeysDoNotFit =
    "[modPack] Input or output ciphertexts is not compatible to the given modpack keys";
inline constexpr const char* modPackLevel = "[modPack] The level of given ciphertext(s) is more than the "
                                            "level of max encryption level of the output ciphertext";
inline constexpr const char* unPackDegree =
    "[unPack] Input Ciphertext degree should be equal to the number of output LWE Ciphertexts";
inline constexpr const char* unPackLevel = "[unPack] The level of given ciphertext is more than the level of "
                                           "max encryption level of the output ciphertext(s)";

inline constexpr RefusedMeeting packingInput{
    "the input has other primes than the output", "the output's context",
    "choose contexts that share their primes up to the level of the input"};
inline constexpr RefusedMeeting packingKeys{
    "keys are of another ring", "the output's context",
    "use keys whose context shares its primes with the output up to the level of the input"};
inline constexpr RefusedMeeting decomposingKey{
    "the input has other primes than the key", "the key's context",
    "use a key whose context shares its primes with the input up to its level"};
// What a look into a file says: "[inspect] ", the path, and one of these.
inline constexpr const char* inspecting = "[inspect] ";
inline constexpr const char* notRegular = " is no regular file; give the path of a file that was saved";
inline constexpr const char* emptyFile = " is empty; give the path of a file that was saved";
inline constexpr const char* beginsWith = " begins with byte "; // its number, and the next
inline constexpr const char* noFrame =
    ", and what is saved with 0 or 1; give the path of a file that was saved";
inline constexpr const char* changedMeanwhile =
    " changed while it was read; try again when nobody writes to it";
inline constexpr const char* noWholeObject = " is whole as no kind of object; as "; // the kind, and the next
inline constexpr const char* failsAt = " it fails at byte ";                        // ": " and a reason:
inline constexpr const char* endsEarly = "the file ends ";                          // a number, and the next
inline constexpr const char* bytesEarly = " bytes too early for what begins here";
inline constexpr const char* goesOn = "the file goes on here, where it should end";
inline constexpr const char* otherLength = "such a file has another length";
inline constexpr const char* impossibleNumber = "this number cannot be";
inline constexpr const char* numbersDoNotFit = "the numbers up to here do not fit together";
inline constexpr const char* tooManyElements = "too many ring elements to look at, more than 262144";
inline constexpr const char* unreadable = "the file cannot be read here";
inline constexpr const char* noSuchKind = "No such kind of object: "; // and the number

/// The limit is the number of coefficients of the largest ring.
inline constexpr const char* tooManyPackingKeys =
    "[ModPackKeyBundle] The number of keys should be at most 1048576";

inline constexpr const char* composeDegree =
    "[genComposeKey] The degree of input ciphertext does not divide the RLWE encryption degree";
inline constexpr const char* composePrimes =
    "[genComposeKey] The encryption primes of the ciphertext to switch from is not subset of the primes of "
    "the RLWE encryption";
inline constexpr const char* decomposeKeyDegree =
    "[genDecomposeKey] The degree of the switch key is not same to the RLWE encryption degree";
inline constexpr const char* decomposeDegree =
    "[genDecomposeKey] The degree of output ciphertexts does not divide the degree of ciphertext to switch "
    "to";
inline constexpr const char* decomposePrimes =
    "[genDecomposeKey] The encryption primes of the ciphertext to switch to is not subset of the primes of "
    "the RLWE encryption";
inline constexpr const char* decomposeKeyPrimes =
    "[genDecomposeKey] The encryption primes of the ciphertext to switch to is not subset of the primes of "
    "the switching key";
inline constexpr const char* modPackDimension =
    "[genModPackKeyBundle] Total dimension of output secret key is not equal to the RLWE encryption "
    "dimension";
inline constexpr const char* modPackDegree =
    "[genModPackKeyBundle] The degree of input secret key does not divide the degree of output secret key";
inline constexpr const char* modPackRank =
    "[genModPackKeyBundle] The rank of output secret key does not divide the rank of input secret key";
inline constexpr const char* modPackKeyPrimes =
    "[genModPackKeyBundle] The encryption primes of the ciphertext to pack to is not subset of the primes of "
    "the switching key";
inline constexpr const char* modPackOutputPrimes =
    "[genModPackKeyBundle] The encryption primes of the ciphertext to pack to is not subset of the primes of "
    "the output ciphertext";

} // namespace Torvo::message
