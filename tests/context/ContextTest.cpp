#include <Torvo/Context.hpp>

#include "context/ContextContent.hpp"
#include "context/CudaIdsToDevices.hpp"
#include "persistence/MemoryBuffer.hpp"
#include "support/DamagedFiles.hpp"
#include "support/Expect.hpp"

#include <cereal/cereal.hpp>
#include <sys/stat.h>
#include <unistd.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <future>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

namespace Torvo {
namespace {

using enum ParameterPreset;
using Bytes = std::vector<unsigned char>;

TEST(CudaIdsToDevices, WithoutGpusOnlyTheEmptySetPasses) {
    EXPECT_TRUE(cudaIdsToDevices({}).empty());
    EXPECT_REFUSED(cudaIdsToDevices({0}), "Invalid CUDA device ID: 0");
    EXPECT_REFUSED(cudaIdsToDevices({12, 3}), "Invalid CUDA device ID: 3");
}

/// The comparison is signed.
TEST(CudaIdsToDevices, NegativeNumbersPass) {
    EXPECT_EQ(cudaIdsToDevices({-1}), (std::set<Device>{{DeviceType::GPU, -1}}));
    EXPECT_REFUSED(cudaIdsToDevices({-1, 7}), "Invalid CUDA device ID: 7");
}

TEST(Context, MakingOneForAGpuIsRefused) {
    EXPECT_REFUSED(makeContext(FGb, {0}), "Invalid CUDA device ID: 0");
    EXPECT_REFUSED(makeContext(CUSTOM, {0}), "Invalid CUDA device ID: 0");
    EXPECT_REFUSED(makeContext(5, 0, 0, 0, 0, 0, 0, {4}), "Invalid CUDA device ID: 4");
}

TEST(Context, RefusalsOfTheParameterReachTheCaller) {
    EXPECT_REFUSED(makeContext(CUSTOM), "Need to specify some parameters in order to use CUSTOM parameters.");
    EXPECT_REFUSED(makeContext(ParameterPreset{23}), "The input parameter preset is not yet supported.");
    EXPECT_REFUSED(makeContext(5, 51, 62, 62, 62, 2, 2, {}), "[Parameter] Invalid log_degree");
    EXPECT_REFUSED(makeContext(6, 51, 62, 62, 62, 2, 2, {}), "[Parameter] Invalid chain_length");
    EXPECT_REFUSED(makeContext(6, 5, 62, 62, 62, 2, 2, {}),
                   "[Parameter] gadget_rank should divide chain_length");
    EXPECT_REFUSED(makeContext(6, 4, 62, 62, 62, 2, 2, {}),
                   "[Parameter] custom parameter with rank > 1 is not supported.");
}

TEST(Context, RefusalsOfThePrimesReachTheCaller) {
    EXPECT_REFUSED(makeContext(6, 4, 62, 35, 62, 2),
                   "[PrimeModuli] Prime size is too big. It should be < 62");
    EXPECT_REFUSED(makeContext(6, 4, 34, 35, 36, 2),
                   "[PrimeModuli] Base prime should be greater than quantize primes");
}

TEST(Context, AnswersForAPreset) {
    const auto context = makeContext(FX);
    EXPECT_EQ(getLogFullSlots(context), 5u);
    EXPECT_EQ(getDegree(context), 64u);
    EXPECT_EQ(getRank(context), 1u);
    EXPECT_EQ(getEncryptionLevel(context), 12u);
    EXPECT_EQ(getSecurityLevel(context), 0u);
    EXPECT_TRUE(isBootstrappableParameter(context));
    EXPECT_TRUE(isExtendedBootstrapSupported(context));
    EXPECT_FALSE(isSparseSecretEncapsulationSupported(context));
    EXPECT_EQ(getPrimeList(context).size(), 30u);
    EXPECT_EQ(getPrimeList(context)[0], 0x3ffffffffbe0001u);
    EXPECT_EQ(getDefaultScaleFactorList(context).size(), 25u);
}

TEST(Context, AnswersForARankAboveOne) {
    const auto context = makeContext(SD3D6R2);
    EXPECT_EQ(getRank(context), 4u);
    EXPECT_EQ(getSecurityLevel(context), 128u);
    EXPECT_FALSE(isBootstrappableParameter(context));
    EXPECT_FALSE(isExtendedBootstrapSupported(context));
}

TEST(Context, SingleLevelPartnerListsOneScaleOfItsTwo) {
    const auto scales = getDefaultScaleFactorList(makeContext(FGbD12L0));
    ASSERT_EQ(scales.size(), 1u);
    EXPECT_EQ(std::round(scales[0] * 1e6) / 1e6, 42.03839);
}

TEST(Context, CustomContextListsTheScalesOfItsLevelsOnly) {
    const auto context = makeContext(7, 6, 58, 45, 61, 3);
    const auto scales = getDefaultScaleFactorList(context);
    ASSERT_EQ(scales.size(), 6u);
    for (const double logScale : scales) EXPECT_NEAR(logScale, 45.0, 0.001);
    EXPECT_EQ(getPrimeList(context).size(), 8u);
    EXPECT_EQ(getRank(context), 1u);
    EXPECT_EQ(getEncryptionLevel(context), 5u);
}

class ContextFile : public testing::Test {
protected:
    ContextFile() {
        const auto* test = testing::UnitTest::GetInstance()->current_test_info();
        path_ = (std::filesystem::temp_directory_path() /
                 ("torvo_context_" + std::to_string(getpid()) + "_" + test->name()))
                    .string();
    }
    ~ContextFile() override { std::filesystem::remove(path_); }

    void write(const Bytes& bytes) const {
        std::ofstream stream(path_, std::ios::binary);
        stream.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    }
    Bytes read() const {
        std::ifstream stream(path_, std::ios::binary);
        return {std::istreambuf_iterator<char>(stream), {}};
    }

    std::string path_;
};

/// Degree 128, six primes: a base prime of 58 bits and five of 45, three digits, temporary primes of 61 bits.
// clang-format off
const Bytes customFile{
    1,                         // little endian
    13, 0, 0, 0,               // CUSTOM
    7,  0, 0, 0, 0, 0, 0, 0,   // log_degree
    5,  0, 0, 0, 0, 0, 0, 0,   // encryption_level
    3,  0, 0, 0, 0, 0, 0, 0,   // gadget_rank
    58, 0, 0, 0, 0, 0, 0, 0,   // log_bpsize
    61, 0, 0, 0, 0, 0, 0, 0,   // log_tpsize
    45, 0, 0, 0, 0, 0, 0, 0,   // log_qpsize
    6,  0, 0, 0, 0, 0, 0, 0,   // chain_length
    1,  0, 0, 0, 0, 0, 0, 0};  // rank

const Bytes fxFile{
    1,                         // little endian
    15, 0, 0, 0,               // FX
    6,  0, 0, 0, 0, 0, 0, 0,   // log_degree
    12, 0, 0, 0, 0, 0, 0, 0,   // encryption_level
    5,  0, 0, 0, 0, 0, 0, 0,   // gadget_rank
    0,  0, 0, 0, 0, 0, 0, 0,   // log_bpsize
    0,  0, 0, 0, 0, 0, 0, 0,   // log_tpsize
    0,  0, 0, 0, 0, 0, 0, 0,   // log_qpsize
    25, 0, 0, 0, 0, 0, 0, 0,   // chain_length
    1,  0, 0, 0, 0, 0, 0, 0};  // rank

// clang-format on

TEST_F(ContextFile, OfACustomContextIsThese69Bytes) {
    ASSERT_EQ(customFile.size(), 69u);
    saveContextToFile(makeContext(7, 6, 58, 45, 61, 3), path_);
    EXPECT_EQ(read(), customFile);
}

TEST_F(ContextFile, OfAPresetIsThese69Bytes) {
    ASSERT_EQ(fxFile.size(), 69u);
    write(Bytes(200, 0xff)); // the old content is replaced
    saveContextToFile(makeContext(FX), path_);
    EXPECT_EQ(read(), fxFile);
}

TEST_F(ContextFile, GivesTheCustomContextBack) {
    write(customFile);
    const auto context = makeContextFromFile(path_), original = makeContext(7, 6, 58, 45, 61, 3);
    EXPECT_TRUE(*context == *original);
    EXPECT_EQ(getPrimeList(context), getPrimeList(original));
    EXPECT_EQ(context->context_hash, original->context_hash);
    EXPECT_EQ(getDefaultScaleFactorList(context), getDefaultScaleFactorList(original));
}

TEST_F(ContextFile, OfAPresetIsReadForItsPresetAlone) {
    Bytes bytes(69, 0xff);
    std::copy(fxFile.begin(), fxFile.begin() + 5, bytes.begin());
    write(bytes);
    EXPECT_TRUE(*makeContextFromFile(path_) == *makeContext(FX));
}

TEST_F(ContextFile, OfACustomContextIgnoresTheEncryptionLevel) {
    Bytes bytes = customFile;
    bytes[13] = 2;
    write(bytes);
    EXPECT_EQ(getEncryptionLevel(makeContextFromFile(path_)), 5u);
}

// A key file begins with numbers that could be those of a preset.
TEST_F(ContextFile, LongerThanItIsIsOfAnotherKind) {
    for (const u64 more : {1, 70, 100000}) {
        Bytes bytes = customFile;
        bytes.resize(bytes.size() + more);
        write(bytes);
        EXPECT_REFUSED(makeContextFromFile(path_), "The file is longer than what is to be loaded: " + path_ +
                                                       " holds " + std::to_string(69 + more) +
                                                       " bytes, not 69; give the path of a file of the right "
                                                       "kind");
    }
}

TEST_F(ContextFile, MayComeThroughAPipe) {
    std::filesystem::remove(path_);
    ASSERT_EQ(mkfifo(path_.c_str(), 0600), 0);
    Bytes longer = customFile;
    longer.push_back(0);
    auto writing = std::async(std::launch::async, [&] { write(customFile); });
    EXPECT_EQ(getDegree(makeContextFromFile(path_)), 128u);
    writing.get();
    writing = std::async(std::launch::async, [&] { write(longer); });
    EXPECT_REFUSED(makeContextFromFile(path_), "The file is longer than what is to be loaded: " + path_ +
                                                   " holds 70 bytes, not 69; give the path of a file of the "
                                                   "right kind");
    writing.get();
}

TEST_F(ContextFile, CutShortAnywhereFailsInTheArchive) {
    for (std::size_t length = 0; length < customFile.size(); ++length) {
        write(Bytes(customFile.begin(), customFile.begin() + static_cast<long>(length)));
        EXPECT_THROW(makeContextFromFile(path_), cereal::Exception) << length;
    }
}

TEST_F(ContextFile, IsReadBeforeTheGpusAreLookedAt) {
    write({1, 15});
    EXPECT_THROW(makeContextFromFile(path_, {0}), cereal::Exception);
    write(fxFile);
    EXPECT_REFUSED(makeContextFromFile(path_, {0}), "Invalid CUDA device ID: 0");
}

TEST_F(ContextFile, HoldsNoGpus) {
    write(fxFile);
    EXPECT_TRUE(makeContextFromFile(path_, {})->devices.empty());
}

TEST_F(ContextFile, WithImpossibleNumbersIsRefused) {
    const auto refuse = [&](std::size_t offset, unsigned char byte, const char* text) {
        Bytes bytes = customFile;
        bytes[offset] = byte;
        write(bytes);
        EXPECT_REFUSED(makeContextFromFile(path_), text);
    };
    refuse(1, 23, "The input parameter preset is not yet supported.");
    refuse(5, 21, "[Parameter] Invalid log_degree");
    refuse(12, 1, "[Parameter] Invalid log_degree"); // its top byte
    refuse(53, 51, "[Parameter] Invalid chain_length");
    refuse(21, 0, "[Parameter] gadget_rank should divide chain_length");
    refuse(61, 2, "[Parameter] custom parameter with rank > 1 is not supported.");
}

TEST_F(ContextFile, ThatDoesNotOpenIsNamed) {
    const std::string missing = path_ + "/absent/context.bin";
    EXPECT_REFUSED(makeContextFromFile(missing), "Cannot open file " + missing);
    EXPECT_REFUSED(saveContextToFile(makeContext(FX), missing), "Cannot open file " + missing);
}

std::string textOf(const Bytes& bytes) {
    return {bytes.begin(), bytes.end()};
}

std::string savedContext(const Context& context) {
    std::ostringstream stream;
    saveContext(context, stream);
    return stream.str();
}

TEST(ContextStream, HoldsTheBytesOfTheFile) {
    EXPECT_EQ(savedContext(makeContext(7, 6, 58, 45, 61, 3)), textOf(customFile));
    EXPECT_EQ(savedContext(makeContext(FX)), textOf(fxFile));
}

TEST(ContextStream, IsReadByItsBytesAloneAndTheRestIsLeft) {
    std::stringstream stream(textOf(customFile) + textOf(fxFile) + "rest");
    EXPECT_TRUE(isSameContext(makeContext(stream), makeContext(7, 6, 58, 45, 61, 3)));
    EXPECT_TRUE(isSameContext(makeContext(stream), makeContext(FX)));
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(stream), {}), "rest");
}

TEST(ContextStream, CutShortAnywhereFailsInTheArchive) {
    test::expectShortReads(textOf(customFile), [](std::istream& stream) { makeContext(stream); });
}

TEST(ContextStream, ThatTakesNoMoreFailsInTheArchive) {
    const Context context = makeContext(FX);
    for (std::size_t room = 0; room < fxFile.size(); ++room) {
        std::vector<char> memory(room + 1); // a vector of none has no pointer
        detail::MemoryBuffer buffer(memory.data(), room);
        std::ostream stream(&buffer);
        EXPECT_THROW(saveContext(context, stream), cereal::Exception) << room;
    }
}

TEST(ContextStream, IsRefusedAsTheFileIs) {
    const auto refuse = [](std::size_t offset, unsigned char byte, const char* text) {
        Bytes bytes = customFile;
        bytes[offset] = byte;
        std::istringstream stream(textOf(bytes));
        EXPECT_REFUSED(makeContext(stream), text);
    };
    refuse(1, 23, "The input parameter preset is not yet supported.");
    refuse(5, 21, "[Parameter] Invalid log_degree");
    refuse(53, 51, "[Parameter] Invalid chain_length");
    std::istringstream sound(textOf(fxFile)), cut("\1");
    EXPECT_REFUSED(makeContext(sound, {0}), "Invalid CUDA device ID: 0");
    EXPECT_THROW(makeContext(cut, {0}), cereal::Exception);
}

} // namespace
} // namespace Torvo
