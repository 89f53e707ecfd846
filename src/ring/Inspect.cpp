#include <Torvo/Inspect.hpp>

#include "bootstrap/BootConstantsFile.hpp"
#include "context/ContextRecipe.hpp"
#include "context/LWEParameter.hpp"
#include "context/Parameter.hpp"
#include "crypto/UniformRandomBitGenerator.hpp"
#include "crypto/UnsetKey.hpp"
#include "persistence/CerealAdaptor.hpp"
#include "persistence/Messages.hpp"
#include "ring/FileWalk.hpp"
#include "ring/Messages.hpp"

#include <Torvo/EncodingType.hpp>
#include <Torvo/EncryptionType.hpp>
#include <Torvo/LWEParameterPreset.hpp>
#include <Torvo/ParameterPreset.hpp>
#include <Torvo/RuntimeException.hpp>

#include <algorithm>
#include <bit>
#include <cmath>
#include <complex>
#include <optional>
#include <system_error>

namespace Torvo {

namespace {

using Kind = ObjectKind;
using Germ = FileWalk::Germ;
using Header = FileWalk::Header;

// The layouts of docs/files.md, behind the frame.

constexpr u64 germWords = 128;

// ---- contexts

template <class Parameter>
FileContent contextContent(ObjectKind kind, const Parameter& parameter, u64 degree, u64 level) {
    return {.kind = kind, .level = level, .degree = degree, .count = parameter.chain_length};
}

/// What `make` gives; where it refuses the numbers of a recipe, its words are those of the misfit.
template <class Make>
auto made(const FileWalk& walk, Make&& make) {
    try {
        return make();
    } catch (const RuntimeException& refusal) {
        throw Misfit{walk.position(), refusal.what()};
    }
}

/// Reads the numbers of a recipe in its own order.
struct NumberReader {
    FileWalk& walk;
    template <class... Numbers>
    void operator()(Numbers&... numbers) {
        ((numbers = walk.number<Numbers>()), ...);
    }
};

/// The parameter set of a recipe. Of a preset its number alone counts.
template <class Parameter, class Recipe>
Parameter parameterOf(FileWalk& walk) {
    Recipe recipe{};
    NumberReader read{walk};
    read(recipe.preset);
    std::optional<Parameter> parameter;
    const bool isCustom = recipe.preset == decltype(recipe.preset)::CUSTOM;
    if (!isCustom) parameter = made(walk, [&] { return Parameter(recipe.preset); });
    recipe.numbers.serialize(read);
    if (isCustom) parameter = made(walk, [&] { return Parameter(recipe.numbers.sizes); });
    return *parameter;
}

FileContent context(FileWalk& walk) {
    walk.requireRest(68);
    const auto parameter = parameterOf<Parameter, ContextRecipe>(walk);
    return contextContent(Kind::Context, parameter, parameter.degree, parameter.encryption_level);
}

FileContent plainContext(FileWalk& walk) {
    walk.requireRest(36);
    const auto parameter = parameterOf<LWE::Parameter, LWE::ContextRecipe>(walk);
    return contextContent(Kind::LWEContext, parameter, parameter.dimension, parameter.numQP);
}

// ---- data

void rescaleCounter(FileWalk& walk) {
    walk.number<int>([](int counter) { return counter >= 0; });
}

FileContent message(FileWalk& walk) {
    const u64 slots = walk.array(sizeof(std::complex<double>));
    FileContent found{.kind = Kind::Message, .count = slots};
    if (std::has_single_bit(slots)) found.logSlots = static_cast<u64>(std::countr_zero(slots));
    return found;
}

FileContent plaintext(FileWalk& walk) {
    FileContent found{.kind = Kind::Plaintext, .contextHash = walk.number<u64>()};
    walk.tag(ObjectTag::Plaintext);
    found.logSlots = walk.number<u64>();
    rescaleCounter(walk);
    const Header poly = walk.polynomial(Germ::No);
    found.level = poly.level;
    found.degree = poly.degree;
    return found;
}

template <ObjectKind kind>
FileContent ciphertext(FileWalk& walk) {
    FileContent found{.kind = kind, .contextHash = walk.number<u64>()};
    walk.tag(ObjectTag::Ciphertext);
    found.logSlots = walk.number<u64>();
    rescaleCounter(walk);
    walk.number<EncodingType>([](EncodingType encoding) {
        return encoding == EncodingType::Slot || encoding == EncodingType::Coefficient;
    });
    found.count = walk.number<u64>([](u64 count) { return count > 1; });
    Header poly;
    walk.polynomials(*found.count, Germ::No, poly);
    found.level = poly.level;
    found.degree = poly.degree;
    return found;
}

FileContent compactCiphertext(FileWalk& walk) {
    FileContent found{.kind = Kind::CompactCiphertext, .contextHash = walk.number<u64>()};
    walk.tag(ObjectTag::CompactCiphertext);
    found.logSlots = walk.number<u64>();
    const u64 counterAt = walk.position();
    const auto counter = static_cast<u64>(walk.number<int>([](int owed) { return owed >= 0; }));
    walk.skip(germWords, sizeof(u64));
    const Header poly = walk.polynomial(Germ::No);
    if (counter > poly.level) throw Misfit{counterAt, message::impossibleNumber};
    walk.require(!poly.modUp && poly.isNTT);
    found.level = poly.level;
    found.degree = poly.degree;
    return found;
}

/// A vector of integers modulo each prime up to a level.
void levelledVector(FileWalk& walk, FileContent& found) {
    found.degree = walk.number<u64>();
    found.level = walk.number<u64>([](u64 level) { return level + 1 != 0; });
    const u64 words = countOf(*found.degree, *found.level + 1);
    walk.array(sizeof(u64), words, words);
}

FileContent plainCiphertext(FileWalk& walk) {
    FileContent found{.kind = Kind::LWECiphertext, .contextHash = walk.number<u64>()};
    walk.tag(ObjectTag::Ciphertext);
    rescaleCounter(walk);
    levelledVector(walk, found);
    walk.number<u64>([](u64 numPrimes) { return 0 < numPrimes && numPrimes <= limit::rows; });
    walk.expect(u64{*found.level});
    walk.expect(std::uint8_t{0}); // not mod-up
    walk.array(sizeof(u64), *found.level + 1, *found.level + 1);
    return found;
}

// ---- secret keys

/// The numbers that the files of all secret keys have in the same order; whether it is the short form, which
/// then is at its end.
template <class ReadType>
bool isSeedOnly(FileWalk& walk, FileContent& found, ReadType&& readType) {
    walk.expect(std::uint8_t{0}); // there is an option
    found.isSeedOnly = walk.number<int>([](int option) {
        return option == detail::SerializeOption::full || option == detail::SerializeOption::seedOnly;
    }) == detail::SerializeOption::seedOnly;
    readType();
    if (!*found.isSeedOnly) found.contextHash = walk.number<u64>();
    walk.tag(ObjectTag::SecretKey);
    const bool isRandom = *found.isSeedOnly || walk.flag();
    const u64 stateBytes = isRandom ? UniformRandomBitGenerator::stateBytes : 0;
    walk.array(1, stateBytes, stateBytes);
    return *found.isSeedOnly;
}

template <ObjectKind kind, EncryptionType type>
FileContent secretKey(FileWalk& walk) {
    FileContent found{.kind = kind};
    if (isSeedOnly(walk, found, [&] { walk.expect(type); })) return found;
    const u64 coefficients = walk.array(sizeof(int));
    found.count =
        walk.number<u64>([](u64 rank) { return type == EncryptionType::MLWE ? rank > 0 : rank == 1; });
    Header poly;
    walk.polynomials(*found.count, Germ::No, poly);
    walk.require(poly.isOfKey() && coefficients == countOf(*found.count, poly.degree));
    found.level = poly.level;
    found.degree = poly.degree;
    return found;
}

FileContent plainSecretKey(FileWalk& walk) {
    FileContent found{.kind = Kind::LWESecretKey};
    if (isSeedOnly(walk, found, [] {})) return found;
    const u64 coefficients = walk.array(sizeof(int));
    levelledVector(walk, found);
    walk.require(coefficients == *found.degree);
    return found;
}

// ---- other keys

FileContent encryptionKey(FileWalk& walk) {
    FileContent found{.kind = Kind::EncryptionKey};
    walk.tag(ObjectTag::EncryptionKey);
    found.contextHash = walk.number<u64>();
    Header poly;
    walk.polynomials(1, Germ::No, poly);
    walk.require(!poly.modUp && poly.isNTT);
    walk.polynomials(1, Germ::Maybe, poly);
    found.level = poly.level;
    found.degree = poly.degree;
    return found;
}

FileContent evaluationKey(FileWalk& walk) {
    FileContent found{.kind = Kind::EvaluationKey};
    walk.tag(ObjectTag::EvaluationKey);
    found.contextHash = walk.number<u64>();
    found.keyType = walk.number<char>();
    found.rotationIndex = walk.number<u64>();
    found.count = walk.number<u64>([](u64 digits) { return digits <= limit::rows; });
    Header poly;
    walk.polynomials(*found.count, Germ::Maybe, poly);
    walk.expect(u64{*found.count});
    walk.polynomials(*found.count, Germ::No, poly);
    if (*found.count == 0) return found; // a key that nobody filled
    walk.require(poly.isOfKey());
    found.level = poly.level;
    found.degree = poly.degree;
    return found;
}

/// An evaluation key that is to take the place of one of its kind.
FileContent keyOfKind(FileWalk& walk, KeyKind kind) {
    FileContent found = evaluationKey(walk);
    walk.require(found.keyType == static_cast<char>(kind) &&
                 (kind == KeyKind::Rot || found.rotationIndex == 0U));
    return found;
}

FileContent ringSwitchKey(FileWalk& walk) {
    FileContent found = keyOfKind(walk, KeyKind::RingSwitch);
    found.kind = Kind::RingSwitchKey;
    return found;
}

/// Of two rings: to the sparse secret and back.
FileContent encapsulationKey(FileWalk& walk) {
    keyOfKind(walk, KeyKind::Encapsulation);
    FileContent found = keyOfKind(walk, KeyKind::Encapsulation);
    found.kind = Kind::SparseSecretEncapsulationKey;
    return found;
}

/// Several keys that belong to one ring.
class KeysOfOneRing {
public:
    KeysOfOneRing(FileWalk& walk, ObjectKind kind) : walk_(walk) {
        found_.kind = kind;
        found_.count = 0;
    }
    void add(const FileContent& key) {
        if (*found_.count == 0) {
            found_.contextHash = key.contextHash;
            found_.degree = key.degree;
        }
        walk_.require(key.contextHash == found_.contextHash && key.degree == found_.degree);
        ++*found_.count;
    }
    const FileContent& found() const { return found_; }

private:
    FileWalk& walk_;
    FileContent found_;
};

FileContent packingKeys(FileWalk& walk) {
    KeysOfOneRing keys(walk, Kind::ModPackKeyBundle);
    while (!walk.isAtEnd()) keys.add(keyOfKind(walk, KeyKind::ModPack));
    return keys.found();
}

FileContent keyPack(FileWalk& walk) {
    KeysOfOneRing keys(walk, Kind::KeyPack);
    if (walk.flag()) keys.add(encryptionKey(walk));
    for (const KeyKind kind : {KeyKind::Mult, KeyKind::Conj})
        if (walk.flag()) keys.add(keyOfKind(walk, kind));
    const u64 rotations = walk.number<u64>();
    for (u64 i = 0; i < rotations; ++i) keys.add(keyOfKind(walk, KeyKind::Rot));
    if (walk.flag()) keys.add(encapsulationKey(walk));
    return keys.found();
}

// ---- constants

FileContent bootConstants(FileWalk& walk) {
    FileContent found{.kind = Kind::BootConstants, .contextHash = walk.number<u64>()};
    walk.tag(ObjectTag::BootConstants);
    found.logSlots = walk.number<u64>([](u64 slots) { return slots > 0; });
    found.degree = walk.number<u64>([&](u64 n) {
        return std::has_single_bit(n) && n <= limit::degree &&
               *found.logSlots < static_cast<u64>(std::bit_width(n)) - 1;
    });
    const u64 chain_length = walk.number<u64>([](u64 primes) { return 3 < primes && primes <= limit::rows; });
    const u64 rest =
        BootConstantsFile::byteCount(*found.logSlots, *found.degree, chain_length) - walk.position();
    walk.requireRest(rest);
    walk.skip(rest, 1);
    found.count = BootShapes(*found.logSlots, chain_length).plaintextCount();
    return found;
}

// ---- functions

FileContent chebyshevSeries(FileWalk& walk) {
    walk.tag(ObjectTag::ChebyshevSeries);
    const auto lower = walk.number<double>([](double x) { return std::fabs(x) <= limit::intervalBound; });
    walk.number<double>([&](double x) { return lower < x && x <= limit::intervalBound; });
    const auto count = walk.number<u64>([](u64 found) { return 0 < found && found <= limit::coefficients; });
    walk.skip(count, sizeof(std::complex<double>));
    return {.kind = Kind::ChebyshevSeries, .count = count};
}

FileContent encodedTransform(FileWalk& walk) {
    FileContent found{.kind = Kind::EncodedTransform, .contextHash = walk.number<u64>()};
    walk.tag(ObjectTag::EncodedTransform);
    found.logSlots =
        walk.number<u64>([](u64 slots) { return u64{1} << std::min<u64>(slots, 63) < limit::degree; });
    found.level = walk.number<u64>([](u64 level) { return 0 < level && level < limit::rows; });
    found.degree = walk.number<u64>(
        [&](u64 n) { return std::has_single_bit(n) && n <= limit::degree && u64{1} << *found.logSlots < n; });
    const u64 slots = u64{1} << *found.logSlots;
    walk.number<u64>([&](u64 stride) { return stride % 2 == 1 && stride <= slots; });
    walk.number<u64>([&](u64 steps) { return std::has_single_bit(steps) && steps <= slots; });
    found.count = walk.number<u64>([&](u64 count) { return 0 < count && count <= slots; });
    u64 words = 0; // of each rotation, with as many temporary rows as there may be
    for (u64 k = 0, least = 0; k < *found.count; ++k) {
        least = 1 + walk.number<u64>([&](u64 rotation) { return least <= rotation && rotation < slots; });
        const u64 count = walk.array(sizeof(u64));
        if (k == 0) words = count;
        walk.require(count == words && count % *found.degree == 0);
        const u64 rows = count / *found.degree;
        walk.require(*found.level + 1 < rows && rows <= limit::rows);
    }
    return found;
}

FileContent linearTransform(FileWalk& walk) {
    walk.tag(ObjectTag::LinearTransform);
    const auto size =
        walk.number<u64>([](u64 n) { return std::has_single_bit(n) && n <= limit::degree / 2; });
    const auto count = walk.number<u64>([&](u64 found) { return 0 < found && found <= size; });
    for (u64 k = 0, least = 0; k < count; ++k) {
        least = 1 + walk.number<u64>([&](u64 index) { return least <= index && index < size; });
        const u64 entries = walk.array(sizeof(u64));
        walk.require(entries <= size && (entries > 0 || (count == 1 && least == 1)));
        walk.require(walk.array(sizeof(std::complex<double>)) == entries);
    }
    return {.kind = Kind::LinearTransform, .count = count};
}

struct Layout {
    ObjectKind kind;
    const char* name;
    FileContent (*walk)(FileWalk&);
};

constexpr Layout layouts[] = {
    {Kind::Context, "context", context},
    {Kind::Message, "message", message},
    {Kind::Plaintext, "plaintext", plaintext},
    {Kind::Ciphertext, "ciphertext", ciphertext<Kind::Ciphertext>},
    {Kind::ModuleCiphertext, "module ciphertext", ciphertext<Kind::ModuleCiphertext>},
    {Kind::CompactCiphertext, "compact ciphertext", compactCiphertext},
    {Kind::SecretKey, "secret key", secretKey<Kind::SecretKey, EncryptionType::RLWE>},
    {Kind::ModuleSecretKey, "module secret key", secretKey<Kind::ModuleSecretKey, EncryptionType::MLWE>},
    {Kind::EncryptionKey, "encryption key", encryptionKey},
    {Kind::EvaluationKey, "evaluation key", evaluationKey},
    {Kind::SparseSecretEncapsulationKey, "sparse secret encapsulation key", encapsulationKey},
    {Kind::RingSwitchKey, "ring switching key", ringSwitchKey},
    {Kind::ModPackKeyBundle, "bundle of packing keys", packingKeys},
    {Kind::KeyPack, "key pack", keyPack},
    {Kind::LWEContext, "plain LWE context", plainContext},
    {Kind::LWECiphertext, "plain LWE ciphertext", plainCiphertext},
    {Kind::LWESecretKey, "plain LWE secret key", plainSecretKey},
    {Kind::BootConstants, "bootstrapping constants", bootConstants},
    {Kind::ChebyshevSeries, "Chebyshev series", chebyshevSeries},
    {Kind::EncodedTransform, "encoded transform", encodedTransform},
    {Kind::LinearTransform, "linear transform", linearTransform},
};

/// The kinds that the file is whole as; `furthest` says where the others end.
std::vector<FileContent> kindsOf(const RegularFile& file, bool isSwapped, std::string& furthest) {
    std::vector<FileContent> kinds;
    u64 end = 0;
    for (const Layout& layout : layouts) {
        FileWalk walk(file, isSwapped);
        try {
            const FileContent found = layout.walk(walk);
            walk.requireEnd();
            kinds.push_back(found);
        } catch (const Misfit& misfit) {
            if (misfit.offset <= end) continue;
            end = misfit.offset;
            furthest =
                layout.name + std::string(message::failsAt) + std::to_string(end) + ": " + misfit.reason;
        }
    }
    return kinds;
}

/// Why `file` is not even begun with; empty when it can be.
std::string refusalOf(const RegularFile& file, const std::string& path) {
    using State = RegularFile::State;
    if (file.state() == State::NotThere)
        return message::cannotOpenFile + path + ": " + std::generic_category().message(file.error());
    if (file.state() == State::NotRegular) return message::inspecting + path + message::notRegular;
    if (file.size() == 0) return message::inspecting + path + message::emptyFile;
    return {};
}

} // namespace

std::string toString(ObjectKind kind) {
    for (const Layout& layout : layouts)
        if (layout.kind == kind) return layout.name;
    throw RuntimeException(message::noSuchKind + std::to_string(static_cast<int>(kind)));
}

FileReport inspect(const std::string& path) {
    const RegularFile file(path);
    FileReport report{path, file.size(), {}, refusalOf(file, path)};
    if (!report.refusal.empty()) return report;
    const std::string name = message::inspecting + path;
    unsigned char frame = 0;
    const bool isRead = file.read(0, &frame, 1);
    if (isRead && frame > 1) {
        report.refusal = name + message::beginsWith + std::to_string(frame) + message::noFrame;
        return report;
    }
    std::string furthest;
    if (isRead) report.kinds = kindsOf(file, frame == 0, furthest);
    if (!isRead || file.hasChanged()) {
        report.kinds.clear();
        report.refusal = name + message::changedMeanwhile;
    } else if (report.kinds.empty()) {
        report.refusal = name + message::noWholeObject + furthest;
    }
    return report;
}

} // namespace Torvo
