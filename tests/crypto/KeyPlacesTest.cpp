// A key that lies where another one belongs, or that was made for another ring.

#include "context/ContextContent.hpp"
#include "crypto/EncryptionKeyImpl.hpp"
#include "crypto/EvaluationKeyImpl.hpp"
#include "support/ObjectFiles.hpp"
#include "support/TemporaryDirectory.hpp"

#include <Torvo/KeyGenerator.hpp>
#include <Torvo/KeyPack.hpp>

#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <map>
#include <sstream>
#include <string>

namespace Torvo {
namespace {

namespace fs = std::filesystem;
using test::Bytes;
using test::contentOf;
using test::notVerified;
using test::saved;
using test::smallContext;

/// Bytes of an evaluation key's file at which its fields begin.
constexpr std::size_t hashPlace = 1 + 4, kindPlace = hashPlace + 8, indexPlace = kindPlace + 1;

/// A pack with an encryption, a multiplication and a conjugation key, and rotations by 1 and 5.
const KeyPack& generated() {
    static const KeyPack pack = [] {
        const KeyGenerator generator(smallContext(), SecretKey(smallContext()));
        generator.genEncKey();
        generator.genMultKey();
        generator.genConjKey();
        for (const u64 r : {1, 5}) generator.genLeftRotKey(r);
        return generator.getKeyPack();
    }();
    return pack;
}

std::string with(std::string file, std::size_t place, char byte) {
    file.at(place) = byte;
    return file;
}

std::string ofOtherRing(std::string file) {
    file.at(hashPlace) ^= 1;
    return file;
}

/// The places of a pack: the file, how to ask for it, whether it is there, how to load it from a stream.
struct Place {
    std::string name;
    std::function<void(const KeyPack&)> get;
    std::function<bool(const KeyPack&)> isLoaded;
    std::function<void(const KeyPack&, std::istream&)> load;
};

const std::vector<Place>& places() {
    static const std::vector<Place> all{
        {"EncKey", [](const KeyPack& pack) { pack.getEncKey(); },
         [](const KeyPack& pack) { return pack.isEncKeyLoaded(); },
         [](const KeyPack& pack, std::istream& stream) { pack.loadEncKey(stream); }},
        {"MultKey", [](const KeyPack& pack) { pack.getMultKey(); },
         [](const KeyPack& pack) { return pack.isMultKeyLoaded(); },
         [](const KeyPack& pack, std::istream& stream) { pack.loadMultKey(stream); }},
        {"ConjKey", [](const KeyPack& pack) { pack.getConjKey(); },
         [](const KeyPack& pack) { return pack.isConjKeyLoaded(); },
         [](const KeyPack& pack, std::istream& stream) { pack.loadConjKey(stream); }},
        {"RotKey1", [](const KeyPack& pack) { pack.getLeftRotKey(1); },
         [](const KeyPack& pack) { return pack.isLeftRotKeyLoaded(1); },
         [](const KeyPack& pack, std::istream& stream) { pack.loadLeftRotKey(1, stream); }},
        {"RotKey5", [](const KeyPack& pack) { pack.loadRightRotKey(27); },
         [](const KeyPack& pack) { return pack.isRightRotKeyLoaded(27); },
         [](const KeyPack& pack, std::istream& stream) { pack.loadRightRotKey(27, stream); }},
    };
    return all;
}

std::map<std::string, std::string> files() {
    const test::TemporaryDirectory directory;
    KeyPack pack = generated();
    pack.save(directory.path());
    std::map<std::string, std::string> all;
    for (const Place& place : places())
        all[place.name] = contentOf(directory.path() + "/PK/" + place.name + ".bin");
    return all;
}

void expectRefusedThenTaken(const Place& place, const std::string& wrong, const std::string& right) {
    const test::TemporaryDirectory directory;
    fs::create_directory(directory.path() + "/PK");
    const std::string path = directory.path() + "/PK/" + place.name + ".bin";
    const KeyPack lazy(smallContext(), directory.path()), fromStream(smallContext());
    std::ofstream(path, std::ios::binary) << wrong;
    EXPECT_REFUSED(place.get(lazy), notVerified);
    EXPECT_FALSE(place.isLoaded(lazy));
    std::istringstream wrongStream(wrong), rightStream(right), wrongAgain(wrong);
    EXPECT_REFUSED(place.load(fromStream, wrongStream), notVerified);
    EXPECT_FALSE(place.isLoaded(fromStream));

    std::ofstream(path, std::ios::binary) << right;
    EXPECT_NO_THROW(place.get(lazy));
    EXPECT_TRUE(place.isLoaded(lazy));
    EXPECT_NO_THROW(place.load(fromStream, rightStream));
    const std::string before = saved(fromStream);
    EXPECT_REFUSED(place.load(fromStream, wrongAgain), notVerified);
    EXPECT_EQ(saved(fromStream), before);
}

TEST(KeyPlaces, TakeNoKeyOfAnotherPlace) {
    const auto all = files();
    for (const Place& place : places())
        for (const auto& [name, file] : all)
            if (name != place.name) {
                SCOPED_TRACE(name + " as " + place.name);
                expectRefusedThenTaken(place, file, all.at(place.name));
            }
}

TEST(KeyPlaces, TakeNoKeyOfAnotherRing) {
    const auto all = files();
    for (const Place& place : places()) {
        SCOPED_TRACE(place.name);
        expectRefusedThenTaken(place, ofOtherRing(all.at(place.name)), all.at(place.name));
    }
}

TEST(KeyPlaces, TakeNoOtherIndexOfAFixedKey) {
    const auto all = files();
    for (const Place& place : {places()[1], places()[2]})
        expectRefusedThenTaken(place, with(all.at(place.name), indexPlace, 3), all.at(place.name));
}

// A key by itself is for its caller to place.
TEST(KeyPlaces, AreNotLookedAtByTheLoadOfAKeyAlone) {
    const auto all = files();
    const auto key = makeEmptyMultKey(smallContext());
    test::loadFrom(ofOtherRing(all.at("RotKey5")), *key);
    EXPECT_EQ(key->getType(), 'r');
    EXPECT_EQ(key->getRotationIndex(), 5U);
    EncryptionKey encryptionKey(smallContext());
    EXPECT_NO_THROW(test::loadFrom(ofOtherRing(all.at("EncKey")), encryptionKey));
}

/// A pack as one stream, of the files of keys.
std::string packOf(const std::string& encKey, const std::string& multKey, const std::string& conjKey,
                   const std::vector<std::string>& rotKeys) {
    Bytes bytes = Bytes::frame();
    for (const std::string& file : {encKey, multKey, conjKey}) {
        bytes.u8(file.empty() ? 0 : 1);
        if (!file.empty()) bytes.raw(file.substr(1));
    }
    bytes.u64s({rotKeys.size()});
    for (const std::string& file : rotKeys) bytes.raw(file.substr(1));
    return bytes.u8(0).str();
}

TEST(KeyPlaces, OfAPackInOneStreamAreHeldToo) {
    const auto all = files();
    const std::string &enc = all.at("EncKey"), &mult = all.at("MultKey"), &conj = all.at("ConjKey");
    const std::string &first = all.at("RotKey1"), &fifth = all.at("RotKey5");
    KeyPack pack(smallContext());
    const std::string good = packOf(enc, mult, conj, {first, fifth});
    test::loadFrom(good, pack);
    EXPECT_EQ(saved(pack), good);
    EXPECT_EQ(saved(pack), saved(generated()));
    for (const std::string& bad :
         {packOf("", conj, "", {}), packOf("", "", mult, {}), packOf("", first, "", {}),
          packOf("", "", "", {mult}), packOf("", "", "", {first, conj}),
          packOf("", with(mult, indexPlace, 1), "", {}), packOf("", "", "", {with(first, indexPlace, 32)}),
          packOf(ofOtherRing(enc), "", "", {}), packOf("", ofOtherRing(mult), "", {}),
          packOf("", "", ofOtherRing(conj), {}), packOf("", "", "", {ofOtherRing(first)})})
        EXPECT_REFUSED(test::loadFrom(bad, pack), notVerified);
    EXPECT_EQ(saved(pack), good);
}

/// The ring of the small context with one digit where that has two.
Context ofOneDigit() {
    auto content = std::make_shared<ContextContent>(CustomSizes{6, 2, 50, 40, 60, 2}, std::set<Device>{});
    content->parameter.gadget_rank = 1;
    return content;
}

// Hash and kind are the same; the shape is not.
TEST(KeyPlaces, TakeNoKeyOfAnotherGadgetRank) {
    const KeyPack pack(ofOneDigit());
    std::istringstream stream(files().at("MultKey"));
    EXPECT_REFUSED(pack.loadMultKey(stream), notVerified);
    EXPECT_FALSE(pack.isMultKeyLoaded());
}

} // namespace
} // namespace Torvo
