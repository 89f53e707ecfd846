#include <Torvo/Inspect.hpp>

#include "context/ContextContent.hpp"
#include "context/LWEContextContent.hpp"
#include "crypto/EvaluationKeyImpl.hpp"
#include "support/AllocationBudget.hpp"
#include "support/Archives.hpp"
#include "support/FailingAllocations.hpp"
#include "support/FileKinds.hpp"
#include "support/FileMap.hpp"
#include "support/ObjectFiles.hpp"
#include "support/Sanitizer.hpp"
#include "support/Seeded.hpp"

#include <Torvo/Torvo.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <bit>
#include <chrono>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <future>
#include <map>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace Torvo {
namespace {

using namespace test;
namespace fs = std::filesystem;
using Kind = ObjectKind;
using Kinds = std::vector<Kind>;

const std::string archivesPath = std::string(TORVO_ARCHIVES) + "/";

Kinds kindsOf(const FileReport& report) {
    Kinds kinds;
    for (const FileContent& content : report.kinds) kinds.push_back(content.kind);
    return kinds;
}

/// The one kind, or that of the two which look alike, with the numbers of the file.
FileContent only(const FileReport& report) {
    EXPECT_EQ(report.refusal, "");
    EXPECT_FALSE(report.kinds.empty());
    return report.kinds.empty() ? FileContent{} : report.kinds.front();
}

class Inspect : public testing::Test {
protected:
    std::string write(const std::string& bytes) const {
        std::ofstream(path, std::ios::binary) << bytes;
        return path;
    }
    FileReport of(const std::string& bytes) const { return inspect(write(bytes)); }
    std::string refusalOf(const std::string& bytes) const {
        const FileReport report = of(bytes);
        EXPECT_TRUE(report.kinds.empty());
        EXPECT_EQ(report.size, bytes.size());
        return report.refusal;
    }
    std::string told(const std::string& text) const { return "[inspect] " + path + text; }
    std::string whole(const std::string& kindAndReason) const {
        return told(" is whole as no kind of object; as " + kindAndReason);
    }

    const TemporaryDirectory directory;
    const std::string path = directory.path() + "/file";
};

// ---- what is told

const std::map<std::string, Kinds> kindsOfArchives{
    {"message.bin", {Kind::Message}},
    {"plaintext.bin", {Kind::Plaintext}},
    {"ciphertext.bin", {Kind::Ciphertext, Kind::ModuleCiphertext}},
    {"ciphertext_coefficients.bin", {Kind::Ciphertext, Kind::ModuleCiphertext}},
    {"ciphertext_product.bin", {Kind::Ciphertext, Kind::ModuleCiphertext}},
    {"ciphertext_sparse.bin", {Kind::Ciphertext, Kind::ModuleCiphertext}},
    {"module_ciphertext.bin", {Kind::Ciphertext, Kind::ModuleCiphertext}},
    {"compact_ciphertext.bin", {Kind::CompactCiphertext}},
    {"secret_key.bin", {Kind::SecretKey}},
    {"secret_key_given.bin", {Kind::SecretKey}},
    {"secret_key_seed.bin", {Kind::SecretKey}},
    {"partner_secret_key_seed.bin", {Kind::SecretKey}},
    {"narrow_secret_key_seed.bin", {Kind::SecretKey}},
    {"wide_secret_key_seed.bin", {Kind::SecretKey}},
    {"module_secret_key.bin", {Kind::ModuleSecretKey}},
    {"module_secret_key_seed.bin", {Kind::ModuleSecretKey}},
    {"packing_from_seed.bin", {Kind::ModuleSecretKey}},
    {"packing_to_seed.bin", {Kind::ModuleSecretKey}},
    {"keys/PK/EncKey.bin", {Kind::EncryptionKey}},
    {"keys/PK/MultKey.bin", {Kind::EvaluationKey}},
    {"keys/PK/ConjKey.bin", {Kind::EvaluationKey}},
    {"keys/PK/RotKey1.bin", {Kind::EvaluationKey}},
    {"keys/PK/RotKey5.bin", {Kind::EvaluationKey}},
    {"mult_key_in_full.bin", {Kind::EvaluationKey}},
    {"encapsulation_key.bin", {Kind::SparseSecretEncapsulationKey}},
    {"ring_switch_key.bin", {Kind::EvaluationKey, Kind::RingSwitchKey}},
    {"packing_keys.bin", {Kind::ModPackKeyBundle}},
    {"key_pack.bin", {Kind::KeyPack}},
    {"boot_constants.bin", {Kind::BootConstants}},
    {"chebyshev_series.bin", {Kind::ChebyshevSeries}},
    {"encoded_transform.bin", {Kind::EncodedTransform}},
    {"linear_transform.bin", {Kind::LinearTransform}},
    {"ring.context", {Kind::Context}},
    {"partner.context", {Kind::Context}},
    {"narrow.context", {Kind::Context}},
    {"wide.context", {Kind::Context}},
    {"module.context", {Kind::Context}},
    {"lwe.context", {Kind::LWEContext}},
    {"lwe_preset.context", {Kind::LWEContext}},
    {"lwe_ciphertext.bin", {Kind::LWECiphertext}},
    {"lwe_secret_key.bin", {Kind::LWESecretKey}},
    {"lwe_secret_key_seed.bin", {Kind::LWESecretKey}},
};

TEST_F(Inspect, TellsEveryFileThatIsKeptForEver) {
    u64 count = 0;
    for (const auto& entry : fs::recursive_directory_iterator(archivesPath)) {
        const std::string name = fs::relative(entry.path(), archivesPath).string(),
                          extension = entry.path().extension().string();
        if ((extension != ".bin" && extension != ".context") || name.starts_with("damaged/")) continue;
        SCOPED_TRACE(name);
        const FileReport report = inspect(entry.path().string());
        ASSERT_TRUE(kindsOfArchives.contains(name));
        EXPECT_EQ(kindsOf(report), kindsOfArchives.at(name)) << report.refusal;
        EXPECT_EQ(report.refusal, "");
        EXPECT_EQ(report.path, entry.path().string());
        EXPECT_EQ(report.size, fs::file_size(entry.path()));
        ++count;
    }
    EXPECT_EQ(count, kindsOfArchives.size());
}

/// As a machine of the other byte order writes the file, but for the data, which are not looked at.
std::string inOtherByteOrder(const std::string& kind, std::string file) {
    const FileMap map(kind, file);
    const auto reverse = [&](std::size_t offset, std::size_t width) {
        const auto begin = file.begin() + static_cast<std::ptrdiff_t>(offset);
        std::reverse(begin, begin + static_cast<std::ptrdiff_t>(width));
    };
    for (const FileMap::Field& field : map.fields()) reverse(field.offset, field.width);
    for (const FileMap::Polynomial& poly : map.polynomials())
        for (std::size_t prime = poly.primes; prime < poly.flag; prime += 8) reverse(prime, 8);
    file[0] = 0;
    return file;
}

TEST_F(Inspect, TellsFilesOfTheOtherByteOrder) {
    for (const FileKind& kind : fileKinds()) {
        for (const std::string& name : kind.kept) {
            SCOPED_TRACE(name);
            const FileReport ours = inspect(archivesPath + name),
                             theirs = of(inOtherByteOrder(kind.name, contentOf(archivesPath + name)));
            EXPECT_EQ(kindsOf(theirs), kindsOf(ours)) << theirs.refusal;
            EXPECT_EQ(only(theirs).contextHash, only(ours).contextHash);
            EXPECT_EQ(only(theirs).level, only(ours).level);
            EXPECT_EQ(only(theirs).degree, only(ours).degree);
            EXPECT_EQ(only(theirs).count, only(ours).count);
        }
    }
}

TEST_F(Inspect, TellsTheNumbersOfData) {
    const u64 hash = archives::ring()->context_hash;
    const FileContent message = only(inspect(archivesPath + "message.bin"));
    EXPECT_EQ(message.count, 8u);
    EXPECT_EQ(message.logSlots, 3u);
    EXPECT_FALSE(message.contextHash || message.level || message.degree);
    const FileContent plaintext = only(inspect(archivesPath + "plaintext.bin"));
    EXPECT_EQ(plaintext.contextHash, hash);
    EXPECT_EQ(plaintext.level, 1u);
    EXPECT_EQ(plaintext.degree, 64u);
    EXPECT_EQ(plaintext.logSlots, 3u);
    const FileContent product = only(inspect(archivesPath + "ciphertext_product.bin"));
    EXPECT_EQ(product.contextHash, hash);
    EXPECT_EQ(product.count, 3u);
    EXPECT_EQ(product.logSlots, 5u);
    EXPECT_EQ(only(inspect(archivesPath + "ciphertext_coefficients.bin")).level, 0u);
    EXPECT_EQ(only(inspect(archivesPath + "module_ciphertext.bin")).count, 5u);
    const FileContent numbers = only(inspect(archivesPath + "lwe_ciphertext.bin"));
    EXPECT_EQ(numbers.contextHash, archives::plain()->context_hash);
    EXPECT_EQ(numbers.level, 1u);
    EXPECT_EQ(numbers.degree, 16u);
}

TEST_F(Inspect, TellsTheNumbersOfKeys) {
    const u64 hash = archives::ring()->context_hash;
    const FileContent full = only(inspect(archivesPath + "secret_key.bin"));
    EXPECT_EQ(full.contextHash, hash);
    EXPECT_EQ(full.degree, 64u);
    EXPECT_EQ(full.count, 1u);
    EXPECT_EQ(full.isSeedOnly, false);
    const FileContent seed = only(inspect(archivesPath + "secret_key_seed.bin"));
    EXPECT_EQ(seed.isSeedOnly, true);
    EXPECT_FALSE(seed.contextHash || seed.degree || seed.level || seed.count);
    EXPECT_EQ(only(inspect(archivesPath + "module_secret_key.bin")).count, 4u);
    const FileContent rotation = only(inspect(archivesPath + "keys/PK/RotKey5.bin"));
    EXPECT_EQ(rotation.keyType, 'r');
    EXPECT_EQ(rotation.rotationIndex, 5u);
    EXPECT_EQ(rotation.contextHash, hash);
    EXPECT_EQ(rotation.count, 2u);
    EXPECT_EQ(rotation.level, 1u);
    EXPECT_EQ(only(inspect(archivesPath + "keys/PK/EncKey.bin")).contextHash, hash);
    EXPECT_EQ(only(inspect(archivesPath + "encapsulation_key.bin")).contextHash, hash) << "of the main one";
    const FileContent pack = only(inspect(archivesPath + "key_pack.bin"));
    EXPECT_EQ(pack.count, 5u);
    EXPECT_EQ(pack.contextHash, hash);
    EXPECT_EQ(only(inspect(archivesPath + "packing_keys.bin")).count, 4u);
    EXPECT_EQ(only(inspect(archivesPath + "lwe_secret_key.bin")).degree, 16u);
}

TEST_F(Inspect, TellsTheNumbersOfBootstrappingConstants) {
    const FileContent constants = only(inspect(archivesPath + "boot_constants.bin"));
    EXPECT_EQ(constants.contextHash, makeContext(ParameterPreset::FX)->context_hash);
    EXPECT_EQ(constants.logSlots, 1u);
    EXPECT_EQ(constants.degree, 64u);
    EXPECT_EQ(constants.count, 4u) << "two diagonals in each direction";
    EXPECT_FALSE(constants.level.has_value());
}

TEST_F(Inspect, ToldNumbersThatNoBootstrappingConstantsHave) {
    const std::string file = contentOf(archivesPath + "boot_constants.bin");
    const auto refusalWith = [&](std::size_t offset, u64 value) {
        std::string damaged = file;
        FileMap::write(damaged, offset, 8, value);
        return refusalOf(damaged);
    };
    const auto impossible = [&](u64 offset) {
        return whole("bootstrapping constants it fails at byte " + std::to_string(offset) +
                     ": this number cannot be");
    };
    for (const u64 slots : {u64{0}, u64{64}, ~u64{0}})
        EXPECT_EQ(refusalWith(13, slots), impossible(slots == 0 ? 13 : 21)) << slots;
    for (const u64 degree : {u64{0}, u64{2}, u64{63}, u64{1} << 21})
        EXPECT_EQ(refusalWith(21, degree), impossible(21)) << degree;
    for (const u64 primes : {u64{3}, u64{101}, ~u64{0}}) EXPECT_EQ(refusalWith(29, primes), impossible(29));
    const std::string otherLength =
        whole("bootstrapping constants it fails at byte 37: such a file has another length");
    EXPECT_EQ(refusalWith(13, 2), otherLength);
    EXPECT_EQ(refusalWith(29, 24), otherLength);
    EXPECT_EQ(refusalOf(file + "x"), otherLength);
}

TEST_F(Inspect, TellsTheNumbersOfASeries) {
    const FileContent series = only(inspect(archivesPath + "chebyshev_series.bin"));
    EXPECT_EQ(series.count, 17u);
    EXPECT_FALSE(series.contextHash || series.level || series.degree || series.logSlots);
    const std::string file = saved(ChebyshevSeries(std::vector<std::complex<double>>(17), -0.1, 0.3));
    const auto refusalWith = [&](std::size_t offset, u64 value) {
        std::string damaged = file;
        FileMap::write(damaged, offset, 8, value);
        return refusalOf(damaged);
    };
    const auto failsAt = [&](const std::string& reason) {
        return whole("Chebyshev series it fails at byte " + reason);
    };
    // Other kinds get further than to byte 5.
    for (const double lower : {std::nan(""), -HUGE_VAL, -0x1p1001})
        EXPECT_NE(refusalWith(5, std::bit_cast<u64>(lower)), "") << lower;
    for (const double upper : {std::nan(""), HUGE_VAL, 0x1p1001, -0.1, -3.0})
        EXPECT_EQ(refusalWith(13, std::bit_cast<u64>(upper)), failsAt("13: this number cannot be")) << upper;
    for (const u64 count : {u64{0}, u64{1025}, ~u64{0}})
        EXPECT_EQ(refusalWith(21, count), failsAt("21: this number cannot be")) << count;
    EXPECT_EQ(refusalWith(21, 16), failsAt("285: the file goes on here, where it should end"));
}

TEST_F(Inspect, TellsTheNumbersOfEncodedTransforms) {
    const FileContent transform = only(inspect(archivesPath + "encoded_transform.bin"));
    EXPECT_EQ(transform.contextHash, archives::ring()->context_hash);
    EXPECT_EQ(transform.logSlots, 5u);
    EXPECT_EQ(transform.level, 1u);
    EXPECT_EQ(transform.degree, 64u);
    EXPECT_EQ(transform.count, 4u);
}

TEST_F(Inspect, ToldNumbersThatNoEncodedTransformHas) {
    const std::string file = contentOf(archivesPath + "encoded_transform.bin");
    const auto expectRefused = [&](std::size_t offset, u64 value, const std::string& reason) {
        std::string damaged = file;
        FileMap::write(damaged, offset, 8, value);
        EXPECT_EQ(refusalOf(damaged), whole("encoded transform it fails at byte " + reason))
            << offset << " " << value;
    };
    const std::string impossible = ": this number cannot be";
    for (const u64 slots : {u64{20}, u64{64}, ~u64{0}}) expectRefused(13, slots, "13" + impossible);
    expectRefused(13, 6, "29" + impossible); // more than the degree has
    for (const u64 level : {u64{0}, u64{100}}) expectRefused(21, level, "21" + impossible);
    for (const u64 degree : {u64{0}, u64{32}, u64{65}, u64{1} << 21})
        expectRefused(29, degree, "29" + impossible);
    for (const u64 stride : {u64{0}, u64{2}, u64{33}}) expectRefused(37, stride, "37" + impossible);
    for (const u64 steps : {u64{0}, u64{3}, u64{64}}) expectRefused(45, steps, "45" + impossible);
    for (const u64 count : {u64{0}, u64{33}}) expectRefused(53, count, "53" + impossible);
    expectRefused(61, 32, "61" + impossible);
    const u64 second = 61 + 16 + 3 * 64 * 8;
    expectRefused(second, 0, std::to_string(second) + impossible); // not above the first
    expectRefused(
        21, 2, std::to_string(second) + ": the numbers up to here do not fit together"); // no temporary row
    EXPECT_EQ(refusalOf(file + "x"),
              whole("encoded transform it fails at byte " + std::to_string(file.size()) +
                    ": the file goes on here, where it should end"));
}

TEST_F(Inspect, TellsTheNumbersOfContexts) {
    const FileContent ring = only(inspect(archivesPath + "ring.context"));
    EXPECT_EQ(ring.degree, 64u);
    EXPECT_EQ(ring.level, 1u);
    EXPECT_EQ(ring.count, 2u);
    EXPECT_FALSE(ring.contextHash.has_value());
    saveContextToFile(makeContext(ParameterPreset::FX), path);
    EXPECT_EQ(only(inspect(path)).level, 12u) << "that of a fresh ciphertext";
    EXPECT_EQ(only(inspect(path)).count, 25u);
    EXPECT_EQ(only(inspect(archivesPath + "lwe_preset.context")).degree, 32u);
    EXPECT_EQ(only(inspect(archivesPath + "lwe.context")).level, 1u);
}

TEST_F(Inspect, TellsObjectsOfNothing) {
    Message().save(path);
    EXPECT_EQ(only(inspect(path)).count, 0u);
    EvaluationKey().save(path);
    EXPECT_EQ(kindsOf(inspect(path)), Kinds{Kind::EvaluationKey});
    std::ofstream(path, std::ios::binary) << saved(KeyPack(archives::ring()));
    EXPECT_EQ(kindsOf(inspect(path)), Kinds{Kind::KeyPack});
    ModPackKeyBundle(archives::wide(), 0).save(path);
    EXPECT_EQ(kindsOf(inspect(path)), Kinds{Kind::ModPackKeyBundle});
    ModPackKeyBundle(archives::wide(), 1).save(path);
    EXPECT_EQ(kindsOf(inspect(path)), (Kinds{Kind::EvaluationKey, Kind::ModPackKeyBundle}));
}

TEST_F(Inspect, TellsTheNumbersOfLinearTransforms) {
    const std::string file = contentOf(archivesPath + "linear_transform.bin");
    const FileContent transform = only(inspect(archivesPath + "linear_transform.bin"));
    EXPECT_EQ(transform.count, 3u);
    EXPECT_FALSE(transform.contextHash || transform.level || transform.degree || transform.logSlots);
    const auto expectRefused = [&](std::size_t offset, u64 value, const std::string& reason) {
        std::string damaged = file;
        FileMap::write(damaged, offset, 8, value);
        EXPECT_EQ(refusalOf(damaged), whole("linear transform it fails at byte " + reason))
            << offset << " " << value;
    };
    const std::string impossible = ": this number cannot be";
    for (const u64 count : {u64{0}, u64{9}}) expectRefused(13, count, "13" + impossible);
    for (const u64 index : {u64{8}, ~u64{0}}) expectRefused(21, index, "21" + impossible);
    expectRefused(21 + 8 + 8 + 8 * 8 + 8 + 8 * 16, 0, "237" + impossible); // the second index
}

// Files that are made on the spot are as sound as those kept.
TEST_F(Inspect, TellsWhatIsMadeOnTheSpot) {
    for (const std::string& file : fileKind("packing_keys").made())
        EXPECT_EQ(kindsOf(of(file)), Kinds{Kind::ModPackKeyBundle});
    // No public object is loaded from it.
    for (const std::string& file : fileKind("generator_state").made()) EXPECT_TRUE(of(file).kinds.empty());
}

TEST_F(Inspect, HasAWordForEachKind) {
    EXPECT_EQ(toString(Kind::Context), "context");
    EXPECT_EQ(toString(Kind::SparseSecretEncapsulationKey), "sparse secret encapsulation key");
    EXPECT_EQ(toString(Kind::LWESecretKey), "plain LWE secret key");
    EXPECT_EQ(toString(Kind::BootConstants), "bootstrapping constants");
    EXPECT_EQ(toString(Kind::ChebyshevSeries), "Chebyshev series");
    EXPECT_EQ(toString(Kind::EncodedTransform), "encoded transform");
    EXPECT_EQ(toString(Kind::LinearTransform), "linear transform");
    EXPECT_REFUSED(toString(static_cast<Kind>(99)), "No such kind of object: 99");
}

// ---- what does not open

TEST_F(Inspect, ToldWhyAFileDoesNotOpen) {
    const auto refusal = [](const std::string& name) {
        const FileReport report = inspect(name);
        EXPECT_TRUE(report.kinds.empty());
        EXPECT_EQ(report.size, 0u);
        return report.refusal;
    };
    EXPECT_EQ(refusal(path), "Cannot open file " + path + ": No such file or directory");
    EXPECT_EQ(refusal(""), "Cannot open file : No such file or directory");
    write("x");
    EXPECT_EQ(refusal(path + "/below"), "Cannot open file " + path + "/below: Not a directory");
    const std::string loop = directory.path() + "/loop";
    fs::create_symlink(loop, loop);
    EXPECT_EQ(refusal(loop), "Cannot open file " + loop + ": Too many levels of symbolic links");
}

TEST_F(Inspect, ToldThatAFileMayNotBeRead) {
    write(contentOf(archivesPath + "message.bin"));
    ASSERT_EQ(chmod(path.c_str(), 0), 0);
    ASSERT_EQ(chmod(directory.path().c_str(), 0755), 0);
    constexpr uid_t nobody = 65534;
    const uid_t self = geteuid();
    ASSERT_TRUE(self != 0 || seteuid(nobody) == 0);
    const FileReport report = inspect(path);
    ASSERT_EQ(seteuid(self), 0);
    EXPECT_EQ(report.refusal, "Cannot open file " + path + ": Permission denied");
}

// None of them is opened: to open a pipe that nobody writes to waits for ever.
TEST_F(Inspect, ToldWhatIsNoRegularFile) {
    const auto expectRefused = [](const std::string& name) {
        EXPECT_EQ(inspect(name).refusal,
                  "[inspect] " + name + " is no regular file; give the path of a file that was saved");
    };
    expectRefused(directory.path());
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    expectRefused(path);
    expectRefused("/dev/zero");
    expectRefused("/dev/null");
    const std::string link = directory.path() + "/link", socketPath = directory.path() + "/socket";
    fs::create_symlink("/dev/zero", link);
    expectRefused(link);
    const int descriptor = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    ASSERT_LT(socketPath.size(), sizeof address.sun_path);
    std::copy(socketPath.begin(), socketPath.end(), address.sun_path);
    ASSERT_EQ(bind(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    expectRefused(socketPath);
    close(descriptor);
}

// ---- what fits no kind

TEST_F(Inspect, ToldThatAFileIsEmptyOrBeginsAsNoneDoes) {
    EXPECT_EQ(refusalOf(""), told(" is empty; give the path of a file that was saved"));
    for (const int byte : {2, 35, 127, 255})
        EXPECT_EQ(refusalOf(std::string(1, static_cast<char>(byte))),
                  told(" begins with byte " + std::to_string(byte) +
                       ", and what is saved with 0 or 1; give the path of a file that was saved"));
    EXPECT_EQ(kindsOf(of("\1")), Kinds{Kind::ModPackKeyBundle}) << "of no keys";
}

TEST_F(Inspect, ToldWhereTheKindThatFitsLongestFails) {
    const std::string ciphertext = contentOf(archivesPath + "ciphertext.bin");
    const auto data =
        static_cast<std::size_t>(FileMap("ciphertext", ciphertext).polynomials()[1].content) + 8;
    EXPECT_EQ(refusalOf(ciphertext.substr(0, ciphertext.size() - 3)),
              whole("ciphertext it fails at byte " + std::to_string(data) +
                    ": the file ends 3 bytes too early for what begins here"));
    EXPECT_EQ(refusalOf(ciphertext + "x"),
              whole("ciphertext it fails at byte " + std::to_string(ciphertext.size()) +
                    ": the file goes on here, where it should end"));
    const std::size_t prime = FileMap("ciphertext", ciphertext).polynomials()[1].primes;
    std::string even = ciphertext, other = ciphertext;
    FileMap::write(even, prime, 8, 2);
    EXPECT_EQ(refusalOf(even),
              whole("ciphertext it fails at byte " + std::to_string(prime) + ": this number cannot be"));
    FileMap::write(other, prime, 8, 3);
    EXPECT_EQ(refusalOf(other), whole("ciphertext it fails at byte " + std::to_string(ciphertext.size()) +
                                      ": the numbers up to here do not fit together"));
    std::string context = contentOf(archivesPath + "ring.context");
    FileMap::write(context, 5, 8, 21);
    EXPECT_EQ(refusalOf(context), whole("context it fails at byte 69: [Parameter] Invalid log_degree"));
    EXPECT_EQ(refusalOf("\1x"), whole("context it fails at byte 1: such a file has another length"));
}

// Cut at each byte of its head, and here and there behind. What is left may be another kind of file: a preset
// is all that counts in a context, one key of a bundle is a key, and no key is a bundle of none.
TEST_F(Inspect, CutAnywhereNoFileIsToldAsItsKind) {
    for (const FileKind& fileKind : fileKinds()) {
        if (fileKind.kept.empty()) continue;
        const std::string& name = fileKind.kept.front();
        SCOPED_TRACE(name);
        const std::string file = contentOf(archivesPath + name);
        const Kinds& kinds = kindsOfArchives.at(name);
        const u64 step = std::max<u64>(1, file.size() / 32);
        for (u64 length = 1; length < file.size(); length += length < 128 ? 1 : step) {
            const FileReport report = of(file.substr(0, length));
            EXPECT_EQ(report.kinds.empty(), !report.refusal.empty()) << length;
            for (const Kind kind : kindsOf(report))
                EXPECT_TRUE(std::ranges::find(kinds, kind) == kinds.end())
                    << toString(kind) << " of " << length << " bytes";
        }
    }
}

// Each number between the data is put to what a forger would choose. Whatever is told then, nothing grows.
TEST_F(Inspect, ForgedNumbersCostNoMemory) {
    const std::vector<u64> forged{0, 1, 2, u64{1} << 32, u64{1} << 61, ~u64{0}};
    for (const FileKind& kind : fileKinds()) {
        for (const std::string& name : kind.kept) {
            SCOPED_TRACE(name);
            const std::string file = contentOf(archivesPath + name);
            u64 looked = 0;
            const FileMap map(kind.name, file);
            for (const FileMap::Field& field : map.fields()) {
                if (++looked > 24) break; // the first polynomial and what stands before
                for (const u64 value : forged) {
                    std::string damaged = file;
                    FileMap::write(damaged, field.offset, field.width, value);
                    try {
                        inspectWithinMemory(damaged);
                    } catch (const Finding& finding) {
                        ADD_FAILURE() << finding.what << ": " << value << " at " << field.offset;
                    }
                }
            }
        }
    }
}

TEST_F(Inspect, DamagedFilesAreToldOrRefusedAsAnyOther) {
    for (const auto& entry : fs::directory_iterator(archivesPath + "damaged")) {
        SCOPED_TRACE(entry.path());
        const FileReport report = inspect(entry.path().string());
        EXPECT_EQ(report.kinds.empty(), !report.refusal.empty());
    }
}

// ---- what it costs

u64 bytesRead() {
    std::ifstream counters("/proc/self/io");
    std::string name;
    u64 value = 0;
    while (counters >> name >> value)
        if (name == "rchar:") return value;
    return 0;
}

// A tebibyte with a hole in place of its slots.
TEST_F(Inspect, NeverReadsTheData) {
    constexpr u64 slots = u64{1} << 36;
    write(Bytes::frame().u64s({slots}).str());
    std::error_code failed;
    fs::resize_file(path, 9 + 16 * slots, failed);
    if (failed) GTEST_SKIP() << "the file system takes no such file";
    const u64 before = bytesRead();
    const FileReport report = inspect(path);
    const u64 after = bytesRead();
    EXPECT_EQ(only(report).count, slots);
    EXPECT_EQ(only(report).logSlots, 36u);
    EXPECT_EQ(report.size, 9 + 16 * slots);
    if (before == 0) GTEST_SKIP() << "the system does not count what is read";
    EXPECT_LT(after - before, 4096u);
}

// Of a secret key the numbers in front of the state, the coefficients and the ring element.
TEST_F(Inspect, ReadsNoSecret) {
    const std::string key = contentOf(archivesPath + "secret_key.bin");
    write(key);
    const u64 before = bytesRead();
    EXPECT_EQ(kindsOf(inspect(path)), Kinds{Kind::SecretKey});
    const u64 after = bytesRead();
    if (before == 0) GTEST_SKIP() << "the system does not count what is read";
    EXPECT_LT(after - before, 1024u) << "of " << key.size() << " bytes, and of the counters";
}

TEST_F(Inspect, FollowsAListOfSmallElementsUpToItsBoundAlone) {
    constexpr u64 elements = (u64{1} << 18) + 1;
    const std::string poly =
        Bytes().u64s({1, 1, 1, 0}).u8(0).u8(0).u64s({1, 3}).u8(1).u64s({1, 0}).str(); // of degree 1
    std::ofstream file(path, std::ios::binary);
    file << Bytes::frame().u64s({7}).u32(3).u64s({0}).u32(0).u32(0).u64s({elements}).str();
    for (u64 i = 0; i < elements; ++i) file << poly;
    file.close();
    const FileReport report = inspect(path);
    EXPECT_TRUE(report.kinds.empty());
    EXPECT_NE(report.refusal.find("as ciphertext it fails at byte "), std::string::npos) << report.refusal;
    EXPECT_NE(report.refusal.find(": too many ring elements to look at, more than 262144"), std::string::npos)
        << report.refusal;
}

TEST_F(Inspect, ThrowsNothingButThatMemoryRanOut) {
    SKIP_WHERE_NEW_CANNOT_THROW();
    for (const char* name : {"key_pack.bin", "message.bin", "README.md"}) {
        const std::string file = archivesPath + name;
        const FileReport sound = inspect(file);
        bool hasFailed = true;
        for (u64 before = 0; hasFailed; ++before) {
            const FailingAllocation failing(before, FailingAllocation::Thread::Calling);
            try {
                EXPECT_EQ(kindsOf(inspect(file)), kindsOf(sound));
            } catch (const std::bad_alloc&) {
            }
            hasFailed = failing.hasFailed();
        }
    }
}

// ---- a file that somebody writes to

TEST_F(Inspect, AFileThatGrowsIsToldWholeOrNotAtAll) {
    const std::string grown = contentOf(archivesPath + "message.bin") + std::string(64, 'x');
    // What the file may be taken for at each of its lengths: a message when it is whole, and on the way whatever
    // object begins as one. 69 bytes are a context.
    std::map<std::uintmax_t, std::vector<Kind>> kindsOfLength;
    for (std::size_t length = 0; length <= grown.size(); ++length) {
        std::ofstream(path, std::ios::binary).write(grown.data(), static_cast<std::streamsize>(length));
        for (const FileContent& content : inspect(path).kinds) kindsOfLength[length].push_back(content.kind);
    }
    ASSERT_EQ(kindsOfLength[grown.size() - 64], std::vector{Kind::Message});
    std::atomic<bool> isOver = false;
    auto writer = std::async(std::launch::async, [&] {
        while (!isOver) {
            std::ofstream file(path, std::ios::binary);
            for (const char byte : grown) file.put(byte).flush();
        }
    });
    while (!fs::exists(path)) std::this_thread::yield();
    for (int round = 0; round < 20000; ++round) {
        const FileReport report = inspect(path);
        EXPECT_EQ(report.kinds.empty(), !report.refusal.empty());
        std::vector<Kind> kinds;
        for (const FileContent& content : report.kinds) kinds.push_back(content.kind);
        if (!kinds.empty()) {
            EXPECT_EQ(kinds, kindsOfLength[report.size]) << report.size;
        }
    }
    isOver = true;
    writer.get();
}

} // namespace
} // namespace Torvo
