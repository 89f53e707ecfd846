#include "persistence/SavedSize.hpp"

#include "crypto/EvaluationKeyImpl.hpp"
#include "support/AllocationBudget.hpp"
#include "support/Archives.hpp"
#include "support/ObjectFiles.hpp"
#include "support/RingFamily.hpp"
#include "support/Sanitizer.hpp"

#include <Torvo/Torvo.hpp>

#include <gtest/gtest.h>

#include <string>
#include <vector>

// Every kind of file that is loaded is asked for its size too: expectSavedSize in tests/support.
namespace Torvo {
namespace {

using namespace test;
using ModuleCiphertext = CiphertextBase<EncryptionType::MLWE>;
using ModuleSecretKey = SecretKeyBase<EncryptionType::MLWE>;

template <class T>
void expectSize(const T& object, const char* what) {
    EXPECT_EQ(object.savedSize(), saved(object).size()) << what;
    const TemporaryDirectory directory;
    if constexpr (!std::is_same_v<T, KeyPack>) {
        object.save(directory.path() + "/object");
        EXPECT_EQ(object.savedSize(), contentOf(directory.path() + "/object").size()) << what;
    }
}

TEST(SavedSize, OfDataIsTheLengthOfTheirFile) {
    const Context ring = archives::ring(), module = familyModule(6, 2, 2);
    expectSize(Message(), "no slots");
    expectSize(Message(0, 0.5), "a slot");
    expectSize(Message(5, 0.5), "32 slots");
    expectSize(EnDecoder(ring).encode(Message(3, 0.5), 0, 0), "a plaintext of one row");
    expectSize(EnDecoder(ring).encode(Message(3, 0.5), 1, 0), "a plaintext of two rows");
    expectSize(Ciphertext(ring), "a ciphertext");
    expectSize(Ciphertext(ring, true), "a mod-up ciphertext");
    Ciphertext low(ring), three(ring);
    low.setLevel(0);
    expectSize(low, "a ciphertext of one row");
    three.setSize(3);
    expectSize(three, "a ciphertext of three polynomials");
    expectSize(ModuleCiphertext(module), "a ciphertext of a module");
    expectSize(LWE::Ciphertext(archives::plain()), "numbers of plain LWE");
}

TEST(SavedSize, OfSecretKeysIsThatOfTheirFullForm) {
    const Context ring = archives::ring();
    const auto given = archives::givenSecret(64);
    expectSize(SecretKey(ring), "a secret key");
    expectSize(SecretKey(ring, given.data()), "a secret key without a seed");
    expectSize(ModuleSecretKey(familyModule(6, 2, 2)), "a secret key of a module");
    expectSize(LWE::SecretKey(archives::plain()), "a secret key of plain LWE");
}

TEST(SavedSize, OfKeysFollowsTheirGerms) {
    const Context ring = archives::ring();
    const SecretKey secret(ring);
    const KeyGenerator generator(ring, secret);
    generator.genEncKey();
    generator.genMultKey();
    generator.genLeftRotKey(1);
    KeyPack pack = generator.getKeyPack();
    expectSize(*pack.getEncKey(), "an encryption key");
    expectSize(*pack.getMultKey(), "a multiplication key");
    expectSize(EvaluationKey(), "no key");
    expectSize(pack, "a pack");
    expectSize(KeyPack(ring), "an empty pack");
    const u64 withGerms = pack.getMultKey()->savedSize();
    for (Polynomial& poly : pack.getMultKey()->impl().ax.at(Device{})) poly.disableGerm();
    expectSize(*pack.getMultKey(), "a multiplication key in full");
    EXPECT_GT(pack.getMultKey()->savedSize(), withGerms);
    expectSize(pack, "a pack with a key in full");
    expectSize(generator.genComposeKey(secret), "a ring switching key");
    expectSize(SparseSecretEncapsulationKey(ring, archives::partner()), "an encapsulation key");
    for (const u64 count : {0, 1, 3}) expectSize(ModPackKeyBundle(ring, count), "a bundle");
}

// The size is no allocation, and the data are not copied: 16 MiB of slots.
TEST(SavedSize, TakesNoMemory) {
    SKIP_WHERE_ALLOCATIONS_CANNOT_BE_WATCHED();
    const Message large(20, 0.5);
    const Ciphertext ciphertext(archives::ring());
    const AllocationBudget budget(4096);
    EXPECT_EQ(large.savedSize(), 9 + (u64{16} << 20));
    EXPECT_GT(ciphertext.savedSize(), 2000u);
    EXPECT_FALSE(budget.isExceeded());
}

// What counts is no archive: single characters, as formatted output puts them, count too.
TEST(SizeBuffer, CountsWhatEverWayIsWritten) {
    detail::SizeBuffer buffer;
    std::ostream stream(&buffer);
    stream << "12345";
    stream.put('6');
    stream.write("789", 3).flush();
    EXPECT_EQ(buffer.count(), 9u);
    EXPECT_TRUE(stream.good());
}

// Nothing that fails to be written has a size.
TEST(SavedSize, OfAKeyThatIsNotOnTheHostFailsAsItsSaveDoes) {
    EvaluationKey key(archives::ring(), 'm', 0);
    key.copyTo({DeviceType::CPU, 1});
    key.removeExcept({DeviceType::CPU, 1});
    EXPECT_THROW_TEXT(key.savedSize(), std::out_of_range, "map::at");
    EXPECT_THROW_TEXT(saved(key), std::out_of_range, "map::at");
}

} // namespace
} // namespace Torvo
