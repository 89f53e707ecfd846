#include "arithmetic/elements/PolyGerm.hpp"
#include "context/ContextContent.hpp"
#include "crypto/EvaluationKeyImpl.hpp"
#include "crypto/KeyPackImpl.hpp"
#include "support/Bytes.hpp"
#include "support/Contexts.hpp"
#include "support/Expect.hpp"

#include <Torvo/KeyGenerator.hpp>
#include <Torvo/KeyPack.hpp>

#include <gtest/gtest.h>

#include <cereal/cereal.hpp>
#include <chrono>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <future>
#include <set>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace Torvo {

namespace {

using namespace test;
namespace fs = std::filesystem;

constexpr u64 slots = 32;
const char* const notVerified = "[Verifier::load] Validation failed during deserializing objects.";
constexpr std::chrono::seconds patience{30};

Context smallContext() {
    static const Context context = makeContext(6, 4, 50, 42, 50, 2);
    return context;
}

/// A pack with every kind of key but an encapsulation key: rotations by 1, 2 and 31.
const KeyPack& fullPack() {
    static const KeyPack pack = [] {
        const KeyGenerator generator(smallContext(), SecretKey(smallContext()));
        generator.genEncKey();
        generator.genMultKey();
        generator.genConjKey();
        for (const u64 r : {1, 2, 31}) generator.genLeftRotKey(r);
        return generator.getKeyPack();
    }();
    return pack;
}

/// A directory for the time of a test.
class Directory {
public:
    explicit Directory(bool withKeys = true) {
        std::string pattern = testing::TempDir() + "KeyPackTestXXXXXX";
        path_ = mkdtemp(pattern.data());
        if (withKeys) fs::create_directory(path_ / "PK");
    }
    ~Directory() { fs::remove_all(path_); }
    Directory(const Directory&) = delete;
    Directory& operator=(const Directory&) = delete;

    std::string str() const { return path_.string(); }
    fs::path key(const std::string& name) const { return path_ / "PK" / name; }
    std::set<std::string> keys() const {
        std::set<std::string> names;
        for (const auto& entry : fs::recursive_directory_iterator(path_))
            if (!entry.is_directory()) names.insert(fs::relative(entry.path(), path_).string());
        return names;
    }
    void write(const std::string& name, const std::string& bytes) const {
        std::ofstream(key(name), std::ios::binary) << bytes;
    }
    void makeFifo(const std::string& name) const { ASSERT_EQ(mkfifo(key(name).c_str(), 0600), 0); }

private:
    fs::path path_;
};

template <class Key>
std::string fileOf(const Key& key) {
    return bytesOf([&](std::ostream& stream) { save(key, stream); });
}

template <class Key>
std::string fileOf(const std::shared_ptr<Key>& key) {
    return fileOf(*key);
}

std::string fileOf(const KeyPack& pack) {
    return bytesOf([&](std::ostream& stream) { pack.save(stream); });
}

/// The file of a rotation key with another index.
std::string withIndex(std::string file, char index) {
    file[1 + 4 + 8 + 1] = index;
    return file;
}

void loadFrom(KeyPack& pack, const std::string& bytes) {
    std::istringstream stream(bytes);
    pack.load(stream);
}

/// Writes `bytes` into a FIFO once; waits until someone has opened it for reading.
void serve(const fs::path& fifo, const std::string& bytes) {
    const int descriptor = open(fifo.c_str(), O_WRONLY);
    ASSERT_GE(descriptor, 0);
    std::this_thread::sleep_for(std::chrono::milliseconds(50)); // let others ask meanwhile
    std::size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t written = ::write(descriptor, bytes.data() + done, bytes.size() - done);
        ASSERT_GT(written, 0);
        done += static_cast<std::size_t>(written);
    }
    close(descriptor);
}

/// Calls that several threads make at once, and what they give. A FIFO holds one copy of a key: a second open
/// of it would wait for ever, so callers that all come back have read it once.
template <class Call>
auto atOnce(int threads, const fs::path& fifo, const std::string& bytes, Call&& call) {
    using Result = decltype(call());
    std::vector<std::future<Result>> pending;
    for (int i = 0; i < threads; ++i) pending.push_back(std::async(std::launch::async, call));
    serve(fifo, bytes);
    std::vector<Result> results;
    for (auto& one : pending) {
        while (one.wait_for(patience) != std::future_status::ready) {
            ADD_FAILURE() << "the file was opened again";
            serve(fifo, bytes);
        }
        results.push_back(one.get());
    }
    return results;
}

} // namespace

TEST(KeyPack, APackWithoutDirectoryAndKeysGivesNull) {
    const KeyPack pack(smallContext());
    EXPECT_EQ(pack.getEncKey(), nullptr);
    EXPECT_EQ(pack.getMultKey(), nullptr);
    EXPECT_EQ(pack.getConjKey(), nullptr);
    EXPECT_EQ(pack.getLeftRotKey(1), nullptr);
    EXPECT_EQ(pack.getRightRotKey(1), nullptr);
    EXPECT_EQ(pack.getSparseSecretEncapsulationKey(), nullptr);
    EXPECT_FALSE(pack.isEncKeyLoaded());
    EXPECT_FALSE(pack.isMultKeyLoaded());
    EXPECT_FALSE(pack.isConjKeyLoaded());
    EXPECT_FALSE(pack.isLeftRotKeyLoaded(1));
    EXPECT_FALSE(pack.isRightRotKeyLoaded(1));
    EXPECT_FALSE(pack.isSparseSecretEncapsulationKeyLoaded());
    EXPECT_FALSE(pack.isLeftRotKeyFileAvailable(1));
    const auto& impl = *pack.getImpl();
    EXPECT_FALSE(impl.isEncKeyFileAvailable() || impl.isMultKeyFileAvailable() ||
                 impl.isConjKeyFileAvailable());
    EXPECT_FALSE(impl.isSparseSecretEncapsulationKeyFileAvailable());
}

TEST(KeyPack, CopiesSeeTheSameKeys) {
    const KeyPack pack(smallContext());
    const KeyPack copy = pack;
    std::istringstream stream(fileOf(fullPack().getMultKey()));
    copy.loadMultKey(stream);
    EXPECT_TRUE(pack.isMultKeyLoaded());
    EXPECT_EQ(pack.getMultKey(), copy.getMultKey());
}

TEST(KeyPack, RotationIndicesAreReducedModuloTheSlots) {
    const KeyPack& pack = fullPack();
    const auto key = pack.getLeftRotKey(1);
    ASSERT_NE(key, nullptr);
    EXPECT_EQ(pack.getLeftRotKey(slots + 1), key);
    EXPECT_EQ(pack.getRightRotKey(slots - 1), key);
    EXPECT_EQ(pack.getRightRotKey(2 * slots - 1), key);
    EXPECT_EQ(pack.getRightRotKey(1), pack.getLeftRotKey(slots - 1));
    EXPECT_TRUE(pack.isLeftRotKeyLoaded(slots + 2));
    EXPECT_TRUE(pack.isRightRotKeyLoaded(slots + 1));

    const KeyPack other(smallContext());
    std::istringstream zero(withIndex(fileOf(key), 0)), right(withIndex(fileOf(key), slots - 1));
    other.loadRightRotKey(0, zero); // right index 0 is left index 0
    EXPECT_TRUE(other.isLeftRotKeyLoaded(0));
    EXPECT_TRUE(other.isRightRotKeyLoaded(slots));
    other.loadRightRotKey(slots + 1, right);
    EXPECT_TRUE(other.isLeftRotKeyLoaded(slots - 1));
}

TEST(KeyPack, FileQueriesTakeTheIndexAsItIs) {
    const Directory directory;
    directory.write("RotKey1.bin", "x");
    directory.write("RotKey34.bin", "x");
    const KeyPack pack(smallContext(), directory.str());
    EXPECT_TRUE(pack.isLeftRotKeyFileAvailable(1));
    EXPECT_FALSE(pack.isLeftRotKeyFileAvailable(slots + 1));
    EXPECT_FALSE(pack.isLeftRotKeyFileAvailable(2));
    EXPECT_TRUE(pack.isLeftRotKeyFileAvailable(slots + 2));
    EXPECT_FALSE(pack.isLeftRotKeyLoaded(1)); // a query reads nothing
}

TEST(KeyPack, FilesOfFixedKeysAreFoundByName) {
    const Directory directory;
    const KeyPack pack(smallContext(), directory.str());
    const auto& impl = *pack.getImpl();
    EXPECT_FALSE(impl.isEncKeyFileAvailable());
    directory.write("EncKey.bin", "x");
    EXPECT_TRUE(impl.isEncKeyFileAvailable());
    EXPECT_FALSE(impl.isMultKeyFileAvailable());
    directory.write("MultKey.bin", "x");
    EXPECT_TRUE(impl.isMultKeyFileAvailable());
    EXPECT_FALSE(impl.isConjKeyFileAvailable());
    directory.write("ConjKey.bin", "x");
    EXPECT_TRUE(impl.isConjKeyFileAvailable());
    EXPECT_FALSE(impl.isSparseSecretEncapsulationKeyFileAvailable());
    directory.write("SparseSecretEncapsulationKey.bin", "x");
    EXPECT_TRUE(impl.isSparseSecretEncapsulationKeyFileAvailable());
}

TEST(KeyPack, TheConstructorNeedsADirectoryWithItsSubdirectory) {
    const Directory bare(false);
    EXPECT_REFUSED(KeyPack(smallContext(), bare.str()), "Cannot find path " + bare.str());
    const std::string file = bare.str() + "/file";
    std::ofstream(file) << "x";
    EXPECT_REFUSED(KeyPack(smallContext(), file), "Cannot find path " + file);
    EXPECT_REFUSED(KeyPack(smallContext(), std::string("/no/such/path")), "Cannot find path /no/such/path");
    EXPECT_REFUSED(KeyPack(smallContext(), std::string()), "Cannot find path ");
    std::ofstream(bare.str() + "/PK") << "x"; // a file of that name will not do
    EXPECT_REFUSED(KeyPack(smallContext(), bare.str()), "Cannot find path " + bare.str());
}

TEST(KeyPack, SettingADirectoryMakesItsSubdirectory) {
    const Directory bare(false);
    KeyPack pack(smallContext());
    pack.setKeyDirPath(bare.str());
    EXPECT_TRUE(fs::is_directory(bare.key("")));
    EXPECT_NO_THROW(pack.setKeyDirPath(bare.str()));
    EXPECT_NO_THROW(KeyPack(smallContext(), bare.str()));
    EXPECT_REFUSED(pack.setKeyDirPath("/no/such/path"), "Cannot find path /no/such/path");
    bare.write("MultKey.bin", fileOf(fullPack().getMultKey()));
    EXPECT_NE(pack.getMultKey(), nullptr); // the directory set before is still in use
}

TEST(KeyPack, SecondContextsAreCheckedInOrderAndBeforeThePath) {
    const Context context = contextOf(ParameterPreset::FX);
    const char* const unsupported = "[KeyPack] context does not support sparse secret encapsulation";
    EXPECT_REFUSED(KeyPack(context, context), unsupported);
    EXPECT_REFUSED(KeyPack(context, context, "/no/such/path"), unsupported);
}

TEST(KeyPack, SaveWritesExactlyTheKeysHeld) {
    const Directory directory(false);
    const KeyGenerator generator(smallContext(), SecretKey(smallContext()));
    generator.genConjKey();
    KeyPack pack = generator.getKeyPack();
    pack.save(directory.str());
    EXPECT_EQ(directory.keys(), std::set<std::string>{"PK/ConjKey.bin"});

    KeyPack full = fullPack();
    full.save(directory.str()); // over the file that is there
    EXPECT_EQ(directory.keys(),
              (std::set<std::string>{"PK/ConjKey.bin", "PK/EncKey.bin", "PK/MultKey.bin", "PK/RotKey1.bin",
                                     "PK/RotKey2.bin", "PK/RotKey31.bin"}));
    std::ifstream stored(directory.key("ConjKey.bin"), std::ios::binary);
    const std::string bytes((std::istreambuf_iterator<char>(stored)), {});
    EXPECT_EQ(bytes, fileOf(full.getConjKey()));
    EXPECT_REFUSED(full.save("/no/such/path"), "Cannot find path /no/such/path");
}

TEST(KeyPack, KeysAreReadWhenFirstAskedFor) {
    const Directory directory;
    KeyPack saved = fullPack();
    saved.save(directory.str());
    const KeyPack pack(smallContext(), directory.str());
    EXPECT_FALSE(pack.isEncKeyLoaded() || pack.isMultKeyLoaded() || pack.isConjKeyLoaded());
    EXPECT_FALSE(pack.isLeftRotKeyLoaded(1));
    EXPECT_EQ(fileOf(pack.getEncKey()), fileOf(saved.getEncKey()));
    EXPECT_EQ(fileOf(pack.getMultKey()), fileOf(saved.getMultKey()));
    EXPECT_EQ(fileOf(pack.getConjKey()), fileOf(saved.getConjKey()));
    EXPECT_EQ(fileOf(pack.getLeftRotKey(2)), fileOf(saved.getLeftRotKey(2)));
    EXPECT_EQ(fileOf(pack.getRightRotKey(1)), fileOf(saved.getLeftRotKey(31)));
    EXPECT_TRUE(pack.isEncKeyLoaded() && pack.isMultKeyLoaded() && pack.isConjKeyLoaded());
    EXPECT_FALSE(pack.isLeftRotKeyLoaded(1));
    EXPECT_EQ(pack.getLeftRotKey(3), nullptr);
}

TEST(KeyPack, LoadsReadWhatIsThereAndPassOverWhatIsNot) {
    const Directory directory;
    KeyPack saved = fullPack();
    saved.save(directory.str());
    fs::remove(directory.key("ConjKey.bin"));
    const KeyPack pack(smallContext(), directory.str());
    pack.loadEncKey();
    pack.loadMultKey();
    pack.loadConjKey();
    pack.loadLeftRotKey(1);
    pack.loadRightRotKey(1);
    pack.loadLeftRotKey(9);
    pack.loadSparseSecretEncapsulationKey();
    EXPECT_TRUE(pack.isEncKeyLoaded() && pack.isMultKeyLoaded());
    EXPECT_FALSE(pack.isConjKeyLoaded());
    EXPECT_TRUE(pack.isLeftRotKeyLoaded(1) && pack.isLeftRotKeyLoaded(31));
    EXPECT_FALSE(pack.isLeftRotKeyLoaded(9) || pack.isLeftRotKeyLoaded(2));
}

TEST(KeyPack, AKeyInMemoryIsNotReadAgain) {
    const Directory directory;
    KeyPack saved = fullPack();
    saved.save(directory.str());
    const KeyPack pack(smallContext(), directory.str());
    const auto mult = pack.getMultKey(), rot = pack.getLeftRotKey(1);
    directory.write("MultKey.bin", "damaged");
    directory.write("RotKey1.bin", "damaged");
    EXPECT_EQ(pack.getMultKey(), mult);
    EXPECT_EQ(pack.getLeftRotKey(1), rot);
    EXPECT_NO_THROW(pack.loadMultKey());
}

TEST(KeyPack, StreamsReplaceFixedKeysAndNotRotationKeys) {
    const KeyPack& source = fullPack();
    const KeyPack pack(smallContext());
    const auto loadAll = [&] {
        std::istringstream enc(fileOf(source.getEncKey())), mult(fileOf(source.getMultKey()));
        std::istringstream conj(fileOf(source.getConjKey())), rot(fileOf(source.getLeftRotKey(1)));
        pack.loadEncKey(enc);
        pack.loadMultKey(mult);
        pack.loadConjKey(conj);
        pack.loadLeftRotKey(1, rot);
    };
    loadAll();
    const auto enc = pack.getEncKey();
    const auto mult = pack.getMultKey(), conj = pack.getConjKey(), rot = pack.getLeftRotKey(1);
    EXPECT_EQ(fileOf(conj), fileOf(source.getConjKey()));
    loadAll();
    EXPECT_NE(pack.getEncKey(), enc);
    EXPECT_NE(pack.getMultKey(), mult);
    EXPECT_NE(pack.getConjKey(), conj);
    EXPECT_EQ(pack.getLeftRotKey(1), rot);
    EXPECT_EQ(fileOf(rot), fileOf(source.getLeftRotKey(1)));
}

TEST(KeyPack, AFailedLoadLeavesNoKeyBehindAndMayBeTriedAgain) {
    const Directory directory;
    const std::string good = fileOf(fullPack().getMultKey()), goodRot = fileOf(fullPack().getLeftRotKey(1));
    const KeyPack pack(smallContext(), directory.str());
    directory.write("MultKey.bin", good.substr(0, good.size() / 2));
    directory.write("EncKey.bin", good); // of another kind
    directory.write("RotKey1.bin", goodRot.substr(0, goodRot.size() - 1));
    EXPECT_THROW(pack.getMultKey(), cereal::Exception);
    EXPECT_REFUSED(pack.loadEncKey(), notVerified);
    EXPECT_THROW(pack.getLeftRotKey(1), cereal::Exception);
    EXPECT_FALSE(pack.isMultKeyLoaded() || pack.isEncKeyLoaded() || pack.isLeftRotKeyLoaded(1));
    directory.write("MultKey.bin", good);
    directory.write("RotKey1.bin", goodRot);
    EXPECT_EQ(fileOf(pack.getMultKey()), good);
    EXPECT_EQ(fileOf(pack.getLeftRotKey(1)), goodRot);

    const auto held = pack.getMultKey();
    std::istringstream shortStream(good.substr(0, 100)), otherKind(fileOf(fullPack().getEncKey()));
    EXPECT_THROW(pack.loadMultKey(shortStream), cereal::Exception);
    EXPECT_REFUSED(pack.loadMultKey(otherKind), notVerified);
    EXPECT_EQ(pack.getMultKey(), held);
}

TEST(KeyPack, ThreadsThatAskForOneKeyReadItsFileOnce) {
    const Directory directory;
    const KeyPack pack(smallContext(), directory.str());
    directory.makeFifo("RotKey1.bin");
    const std::string rot = fileOf(fullPack().getLeftRotKey(1));
    const auto rotKeys = atOnce(4, directory.key("RotKey1.bin"), rot, [&] { return pack.getLeftRotKey(1); });
    for (const auto& key : rotKeys) EXPECT_EQ(key, pack.getLeftRotKey(1));
    EXPECT_EQ(fileOf(rotKeys.front()), rot);

    directory.makeFifo("MultKey.bin");
    const std::string mult = fileOf(fullPack().getMultKey());
    const auto multKeys = atOnce(4, directory.key("MultKey.bin"), mult, [&] { return pack.getMultKey(); });
    for (const auto& key : multKeys) EXPECT_EQ(key, pack.getMultKey());

    directory.makeFifo("EncKey.bin");
    const std::string enc = fileOf(fullPack().getEncKey());
    const auto encKeys = atOnce(4, directory.key("EncKey.bin"), enc, [&] { return pack.getEncKey(); });
    for (const auto& key : encKeys) EXPECT_EQ(key, pack.getEncKey());
}

TEST(KeyPack, AKeyBeingReadHoldsUpNoOther) {
    const Directory directory;
    KeyPack saved = fullPack();
    saved.save(directory.str());
    const std::string first = fileOf(saved.getLeftRotKey(1));
    fs::remove(directory.key("RotKey1.bin"));
    directory.makeFifo("RotKey1.bin"); // nobody writes to it yet, so whoever opens it waits
    const KeyPack pack(smallContext(), directory.str());
    auto waiting = std::async(std::launch::async, [&] { return pack.getLeftRotKey(1); });
    auto others = std::async(std::launch::async, [&] {
        return pack.getLeftRotKey(2) && pack.getRightRotKey(1) && pack.getMultKey() && pack.getConjKey() &&
               pack.getEncKey() && pack.isLeftRotKeyLoaded(2) && !pack.isLeftRotKeyLoaded(1);
    });
    EXPECT_EQ(others.wait_for(patience), std::future_status::ready);
    EXPECT_EQ(waiting.wait_for(std::chrono::milliseconds(20)), std::future_status::timeout);
    serve(directory.key("RotKey1.bin"), first);
    EXPECT_TRUE(others.get());
    EXPECT_EQ(fileOf(waiting.get()), first);
}

TEST(KeyPack, AStreamHoldsTheKeysInOrder) {
    const KeyPack& pack = fullPack();
    const auto fields = [](const auto& key) { return fileOf(key).substr(1); };
    const std::string expected = Bytes::frame()
                                     .u8(1)
                                     .raw(fields(pack.getEncKey()))
                                     .u8(1)
                                     .raw(fields(pack.getMultKey()))
                                     .u8(1)
                                     .raw(fields(pack.getConjKey()))
                                     .u64s({3})
                                     .raw(fields(pack.getLeftRotKey(1)))
                                     .raw(fields(pack.getLeftRotKey(2)))
                                     .raw(fields(pack.getLeftRotKey(31)))
                                     .u8(0)
                                     .str();
    EXPECT_EQ(fileOf(pack), expected);
    EXPECT_EQ(fileOf(KeyPack(smallContext())), Bytes::frame().u8(0).u8(0).u8(0).u64s({0}).u8(0).str());
}

TEST(KeyPack, LoadingAStreamReplacesWhatThePackHeld) {
    KeyPack pack(smallContext());
    loadFrom(pack, fileOf(fullPack()));
    EXPECT_EQ(fileOf(pack), fileOf(fullPack()));
    const auto rot = pack.getLeftRotKey(1);
    loadFrom(pack, fileOf(fullPack()));
    EXPECT_NE(pack.getLeftRotKey(1), rot);
    loadFrom(pack, fileOf(KeyPack(smallContext())));
    EXPECT_FALSE(pack.isEncKeyLoaded() || pack.isMultKeyLoaded() || pack.isConjKeyLoaded());
    EXPECT_FALSE(pack.isLeftRotKeyLoaded(1));
}

TEST(KeyPack, DamagedStreamsFailAndChangeNothing) {
    KeyPack pack(smallContext());
    loadFrom(pack, fileOf(fullPack()));
    const std::string good = fileOf(fullPack());
    EXPECT_THROW_TEXT(loadFrom(pack, ""), cereal::Exception, shortRead(1, 0));
    for (std::size_t length = 0; length < good.size(); length += 4001)
        EXPECT_THROW(loadFrom(pack, good.substr(0, length)), cereal::Exception) << length;
    EXPECT_REFUSED(loadFrom(pack, Bytes::frame().u8(2).str()), notVerified);
    const auto manyRotations = Bytes::frame().u8(0).u8(0).u8(0).u64s({u64{1} << 60}).str();
    EXPECT_THROW_TEXT(loadFrom(pack, manyRotations), cereal::Exception, shortRead(4, 0));
    const auto encapsulation = Bytes::frame().u8(0).u8(0).u8(0).u64s({0}).u8(1).str();
    EXPECT_REFUSED(loadFrom(pack, encapsulation),
                   "[KeyPack] context does not support sparse secret encapsulation");
    EXPECT_EQ(fileOf(pack), good);
}

TEST(KeyPack, AllKeysMoveToADevice) {
    KeyPack pack(smallContext());
    loadFrom(pack, fileOf(fullPack()));
    pack.getImpl()->sparseKey.replace(
        [] { return makeEmptySparseSecretEncapsulationKey(smallContext(), smallContext()); });
    const Device secondCpu{DeviceType::CPU, 1};
    pack.to(secondCpu);
    EXPECT_EQ(pack.getEncKey()->getDevice(), secondCpu);
    for (const auto& key :
         {pack.getMultKey(), pack.getConjKey(), pack.getLeftRotKey(1), pack.getLeftRotKey(31)}) {
        EXPECT_NO_THROW(key->getAxIter(secondCpu));
        EXPECT_THROW_TEXT(key->getAxIter(Device{}), std::out_of_range, "map::at");
    }
    const auto encapsulation = pack.getSparseSecretEncapsulationKey();
    for (const EvaluationKey* part : {encapsulation->getDTSPart(), encapsulation->getSTDPart()}) {
        EXPECT_NO_THROW(part->getAxIter(secondCpu));
        EXPECT_THROW_TEXT(part->getAxIter(Device{}), std::out_of_range, "map::at");
    }
    EXPECT_NO_THROW(KeyPack(smallContext()).to(secondCpu));
    EXPECT_REFUSED(pack.to({DeviceType::GPU, 0}),
                   "Cannot support the function 'doAllocate' in the current build configuration");
}

TEST(KeyPack, AnEncapsulationKeyNeedsASecondContext) {
    const Directory directory;
    directory.write("SparseSecretEncapsulationKey.bin", "x");
    const KeyPack pack(smallContext(), directory.str());
    EXPECT_EQ(pack.getSparseSecretEncapsulationKey(), nullptr);
    std::istringstream stream("x");
    EXPECT_REFUSED(pack.loadSparseSecretEncapsulationKey(stream),
                   "[KeyPack] context does not support sparse secret encapsulation");
}

TEST(KeyPackRealPreset, AnEncapsulationKeyTakesTheWaysOfTheOthers) {
    const Context context = makeContext(ParameterPreset::FGd);
    const Context partner = makeContext(ParameterPreset::SGd0);
    EXPECT_REFUSED(KeyPack(context, contextOf(ParameterPreset::FX)),
                   "[KeyPack] parameter of context and context_sparse does not match");
    EXPECT_REFUSED(KeyPack(context, contextOf(ParameterPreset::FX), "/no/such/path"),
                   "[KeyPack] parameter of context and context_sparse does not match");
    EXPECT_REFUSED(KeyPack(context, partner, "/no/such/path"), "Cannot find path /no/such/path");

    const Directory directory;
    std::string expected;
    {
        auto key = makeEmptySparseSecretEncapsulationKey(context, partner);
        for (EvaluationKey* part : {key->getDTSPart(), key->getSTDPart()})
            for (u64 j = 0; j < part->getGadgetRank(); ++j) {
                populateUniformPoly(part->getAxIter(Device{})[j], true);
                populateUniformPoly(part->getBxIter(Device{})[j], true); // saved in full all the same
            }
        expected = fileOf(*key);
        KeyPack pack(context, partner);
        pack.getImpl()->sparseKey.replace([&] { return std::move(key); });
        pack.save(directory.str());
        EXPECT_EQ(fileOf(pack),
                  Bytes::frame().u8(0).u8(0).u8(0).u64s({0}).u8(1).raw(expected.substr(1)).str());
    }
    EXPECT_EQ(directory.keys(), std::set<std::string>{"PK/SparseSecretEncapsulationKey.bin"});
    KeyPack pack(context, partner, directory.str());
    EXPECT_FALSE(pack.isSparseSecretEncapsulationKeyLoaded());
    pack.loadSparseSecretEncapsulationKey();
    EXPECT_TRUE(pack.isSparseSecretEncapsulationKeyLoaded());
    EXPECT_EQ(fileOf(pack.getSparseSecretEncapsulationKey()), expected);
    std::istringstream stream(expected);
    pack.loadSparseSecretEncapsulationKey(stream);
    EXPECT_EQ(fileOf(pack.getSparseSecretEncapsulationKey()), expected);
    loadFrom(pack, fileOf(pack));
    EXPECT_EQ(fileOf(pack.getSparseSecretEncapsulationKey()), expected);
}

} // namespace Torvo
