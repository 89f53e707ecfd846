// Files that have uniform polynomials as germs of a kilobyte where no valid file has them. Each germ would
// expand to the size of the ring, or of a ring that the file describes: a load must refuse them before it
// expands one.

#include "core/DeviceSpecificArray.hpp"
#include "support/Archives.hpp"
#include "support/FailingAllocations.hpp"
#include "support/FileKinds.hpp"
#include "support/FileMap.hpp"
#include "support/ObjectFiles.hpp"
#include "support/RingFamily.hpp"
#include "support/Sanitizer.hpp"

#include <Torvo/KeyGenerator.hpp>
#include <Torvo/Torvo.hpp>

#include <gtest/gtest.h>

#include <functional>
#include <sstream>
#include <string>
#include <utility>

namespace Torvo {
namespace {

using namespace test;
using enum EncryptionType;

// ---- forging

/// A ring where a polynomial takes 768 KiB with its temporary primes, 512 KiB without: a few germs go beyond
/// what the load of a short file may take.
const Context& largeRing() {
    static const Context context = makeContext(13, 8, 50, 40, 60, 2);
    return context;
}

std::string asGerm(const std::string& file, const FileMap::Polynomial& poly) {
    return file.substr(poly.begin, poly.flag - poly.begin) + '\0' + std::string(1024, '\7');
}

/// The file with those polynomials as germs that `isGerm(index)` names, counted in the file's order.
std::string withGerms(
    const std::string& kind, std::string file,
    const std::function<bool(std::size_t)>& isGerm = [](std::size_t) { return true; }) {
    const FileMap map(kind, file);
    const auto& polys = map.polynomials();
    for (std::size_t i = polys.size(); i-- > 0;) // from the end, so that the places in front stay
        if (isGerm(i)) file.replace(polys[i].begin, polys[i].end - polys[i].begin, asGerm(file, polys[i]));
    return file;
}

/// The file with the first item of its last list `count` times.
std::string repeated(const std::string& kind, std::string file, u64 count) {
    const FileMap map(kind, file);
    const FileMap::List list = map.lists().back();
    const FileMap::Field item = list.items.at(0);
    const std::string bytes = file.substr(item.offset, item.width);
    for (u64 i = list.items.size(); i < count; ++i) file.insert(item.offset, bytes);
    FileMap::write(file, list.count, 8, count);
    return file;
}

/// An evaluation key of `axCount` and `bxCount` germs of the largest shape that a file may claim: 800 MiB
/// each.
std::string giantKey(u64 axCount, u64 bxCount) {
    Bytes germ;
    germ.u64s({u64{1} << 20, 50, 100, 49}).u8(1).u8(1).u64s({100});
    for (int i = 0; i < 100; ++i) germ.u64s({1152921504606844289});
    germ.u8(0).raw(std::string(1024, '\7'));
    Bytes file = Bytes::frame().u32(1).u64s({0}).u8('m').u64s({0});
    for (const u64 count : {axCount, bxCount}) {
        file.u64s({count});
        for (u64 i = 0; i < count; ++i) file.raw(germ.str());
    }
    return file.str();
}

/// Blocks that earlier objects released would be reused without being counted. A failing allocation makes the
/// allocator of arrays return them to the system.
void emptyBlockCache() {
    const DeviceSpecificArray<u64> first(1); // from here on there is one
    const FailingAllocation failing(0);
    EXPECT_THROW(DeviceSpecificArray<u64>(1), std::bad_alloc);
}

/// `load` of a file of so many bytes is refused as invalid, with no more memory than a refused load may take.
void expectRefusedCheaply(u64 byteCount, const std::function<void()>& load) {
    emptyBlockCache();
    try {
        EXPECT_REFUSED(loadWithinMemory(byteCount, load), notVerified);
    } catch (const Finding& finding) {
        ADD_FAILURE() << finding.what;
    }
}

template <class T>
void expectRefusedCheaply(const std::string& file, T object) {
    expectRefusedCheaply(file.size(), [&] { loadFrom(file, object); });
}

/// A sound file of this kind loads, and the same with germs for all its polynomials does not.
template <class T>
void expectGermsRefused(const std::string& kind, const std::string& sound,
                        const std::function<T()>& makeEmpty) {
    T object = makeEmpty();
    EXPECT_NO_THROW(loadFrom(sound, object)) << kind;
    expectRefusedCheaply(withGerms(kind, sound), makeEmpty());
}

KeyGenerator generatorOf(const Context& context) {
    return KeyGenerator(context, SecretKey(context));
}

// ---- objects with no use for germs

TEST(GermBombs, APlaintextTakesNoGerm) {
    SKIP_WHERE_ALLOCATIONS_CANNOT_BE_WATCHED();
    expectGermsRefused<Plaintext>("plaintext", saved(Plaintext(largeRing())),
                                  [] { return Plaintext(largeRing()); });
}

TEST(GermBombs, ACiphertextTakesNoGerm) {
    SKIP_WHERE_ALLOCATIONS_CANNOT_BE_WATCHED();
    const std::string sound = saved(Ciphertext(largeRing()));
    expectGermsRefused<Ciphertext>("ciphertext", sound, [] { return Ciphertext(largeRing()); });
    for (const bool isModUp : {false, true}) {
        const std::string germs = withGerms("ciphertext", saved(Ciphertext(largeRing(), isModUp)));
        expectRefusedCheaply(repeated("ciphertext", germs, 16), Ciphertext(largeRing()));
    }
}

TEST(GermBombs, ACiphertextOfAModuleTakesNoGerm) {
    SKIP_WHERE_ALLOCATIONS_CANNOT_BE_WATCHED();
    const Context module = familyModule(8, 3, 4);
    using ModuleCiphertext = CiphertextBase<MLWE>;
    expectGermsRefused<ModuleCiphertext>("module_ciphertext", saved(ModuleCiphertext(module)),
                                         [&] { return ModuleCiphertext(module); });
}

template <EncryptionType E>
void expectSecretKeyTakesNoGerm(const std::string& kind, const Context& context, u64 count) {
    const auto load = [&](const std::string& file) {
        std::istringstream stream(file);
        SecretKeyBase<E>(context, stream);
    };
    const std::string sound = saved(SecretKeyBase<E>(context));
    EXPECT_NO_THROW(load(sound));
    const std::string germs = withGerms(kind, sound);
    for (const std::string& file : {germs, repeated(kind, germs, count)})
        expectRefusedCheaply(file.size(), [&] { load(file); });
}

TEST(GermBombs, ASecretKeyTakesNoGerm) {
    SKIP_WHERE_ALLOCATIONS_CANNOT_BE_WATCHED();
    expectSecretKeyTakesNoGerm<RLWE>("secret_key", largeRing(), 16);
}

TEST(GermBombs, ASecretKeyOfAModuleTakesNoGerm) {
    SKIP_WHERE_ALLOCATIONS_CANNOT_BE_WATCHED();
    expectSecretKeyTakesNoGerm<MLWE>("module_secret_key", familyModule(8, 3, 4), 19);
}

// ---- keys: one half is uniform and may be a germ, the other must be there in full

TEST(GermBombs, AnEncryptionKeyTakesNoGermForItsOtherHalf) {
    SKIP_WHERE_ALLOCATIONS_CANNOT_BE_WATCHED();
    const KeyGenerator generator = generatorOf(largeRing());
    generator.genEncKey();
    expectGermsRefused<EncryptionKey>("encryption_key", saved(*generator.getKeyPack().getEncKey()),
                                      [] { return EncryptionKey(largeRing()); });
}

TEST(GermBombs, AnEvaluationKeyTakesNoGermsForItsOtherHalf) {
    SKIP_WHERE_ALLOCATIONS_CANNOT_BE_WATCHED();
    const KeyGenerator generator = generatorOf(largeRing());
    generator.genMultKey();
    const std::string sound = saved(*generator.getKeyPack().getMultKey());
    expectGermsRefused<EvaluationKey>("evaluation_key", sound,
                                      [] { return EvaluationKey(largeRing(), 'm', 0); });
    expectGermsRefused<EvaluationKey>("key_without_context", sound, [] { return EvaluationKey(); });
    // One of the other half is enough.
    const std::string last = withGerms("evaluation_key", sound, [](std::size_t i) { return i == 3; });
    expectRefusedCheaply(last, EvaluationKey(largeRing(), 'm', 0));
    expectRefusedCheaply(last, EvaluationKey());
}

TEST(GermBombs, AKeyWithoutContextGrowsNothingFromFourKilobytes) {
    SKIP_WHERE_ALLOCATIONS_CANNOT_BE_WATCHED();
    const std::string file = giantKey(1, 1);
    EXPECT_LT(file.size(), 4096U);
    expectRefusedCheaply(file, EvaluationKey());
    expectRefusedCheaply(giantKey(100, 100), EvaluationKey());
}

/// The uniform half comes first in the file: it must not be expanded before the other has been read.
TEST(GermBombs, AKeyWithoutContextGrowsNothingBeforeItsOtherHalfIsThere) {
    SKIP_WHERE_ALLOCATIONS_CANNOT_BE_WATCHED();
    for (const u64 count : {1, 100}) {
        const std::string file = giantKey(count, 0), cut = file.substr(0, file.size() - 8);
        EvaluationKey key;
        try {
            loadWithinMemory(cut.size(), [&] { loadFrom(cut, key); });
            ADD_FAILURE() << "half a key was loaded";
        } catch (const cereal::Exception& failure) {
            EXPECT_STREQ(failure.what(), shortRead(8, 0).c_str());
        } catch (const Finding& finding) {
            ADD_FAILURE() << finding.what;
        }
        expectRefusedCheaply(file, EvaluationKey()); // there are no others
    }
}

TEST(GermBombs, ARingSwitchKeyTakesNoGermsForItsOtherHalf) {
    SKIP_WHERE_ALLOCATIONS_CANNOT_BE_WATCHED();
    const Context narrow = archives::narrow(), wide = archives::wide();
    const RingSwitchKey key = generatorOf(wide).genComposeKey(SecretKey(narrow));
    expectGermsRefused<RingSwitchKey>("ring_switch_key", saved(key), [&] { return RingSwitchKey(wide); });
}

TEST(GermBombs, AnEncapsulationKeyTakesNoGermsForItsOtherHalves) {
    SKIP_WHERE_ALLOCATIONS_CANNOT_BE_WATCHED();
    const Context partner = makeContext(13, 1, 50, 42, 51, 1);
    using Key = SparseSecretEncapsulationKey;
    expectGermsRefused<Key>("encapsulation_key", saved(Key(largeRing(), partner)),
                            [&] { return Key(largeRing(), partner); });
}

TEST(GermBombs, ABundleTakesNoGermsForItsOtherHalves) {
    SKIP_WHERE_ALLOCATIONS_CANNOT_BE_WATCHED();
    const auto empty = [] { return ModPackKeyBundle(largeRing(), 2); };
    expectGermsRefused<ModPackKeyBundle>("packing_keys", saved(empty()), empty);
}

TEST(GermBombs, APackTakesNoGermsForOtherHalves) {
    SKIP_WHERE_ALLOCATIONS_CANNOT_BE_WATCHED();
    const KeyGenerator generator = generatorOf(largeRing());
    generator.genLeftRotKey(1);
    const std::string sound = saved(generator.getKeyPack());
    expectGermsRefused<KeyPack>("key_pack", sound, [] { return KeyPack(largeRing()); });
    // Each under an index of its own, so that the pack keeps them all.
    std::string file = repeated("key_pack", withGerms("key_pack", sound), 40);
    const FileMap map("key_pack", file);
    u64 index = 0;
    for (const FileMap::Field& key : map.lists().back().items)
        FileMap::write(file, key.offset + 13, 8, index++);
    expectRefusedCheaply(file, KeyPack(largeRing()));
}

} // namespace
} // namespace Torvo
