#include <Torvo/CudaTools.hpp>
#include <Torvo/Device.hpp>

#include "core/CudaStreamView.hpp"

#include <gtest/gtest.h>

#include <set>
#include <type_traits>
#include <vector>

namespace Torvo {
namespace {

constexpr Device cpu0{DeviceType::CPU, 0}, cpu1{DeviceType::CPU, 1}, gpu0{DeviceType::GPU, 0},
    gpu1{DeviceType::GPU, 1}, pinned0{DeviceType::PinnedHost, 0};

TEST(Device, NumbersOfTheKindsAreFixed) {
    EXPECT_EQ(static_cast<int>(DeviceType::CPU), 0);
    EXPECT_EQ(static_cast<int>(DeviceType::GPU), 1);
    EXPECT_EQ(static_cast<int>(DeviceType::PinnedHost), 3);
    EXPECT_EQ(sizeof(Device), 8u);
}

TEST(Device, DefaultIsTheHost) {
    EXPECT_EQ(Device{}, cpu0);
}

TEST(Device, EqualityLooksAtBothMembers) {
    EXPECT_NE(cpu0, cpu1);
    EXPECT_NE(cpu0, gpu0);
    EXPECT_EQ(gpu1, (Device{DeviceType::GPU, 1}));
}

TEST(Device, OrderIsByIdThenByType) {
    const std::set<Device> sorted{gpu1, pinned0, cpu1, gpu0, cpu0};
    EXPECT_EQ(std::vector<Device>(sorted.begin(), sorted.end()),
              (std::vector<Device>{cpu0, gpu0, pinned0, cpu1, gpu1}));
}

TEST(Device, CurrentCudaDeviceIsGpuZeroWhateverIsSet) {
    EXPECT_EQ(getCurrentCudaDevice(), gpu0);
    setCurrentCudaDevice(5);
    EXPECT_EQ(getCurrentCudaDevice(), gpu0);
}

TEST(CudaTools, AnswersThatNothingIsThere) {
    EXPECT_FALSE(CudaTools::isAvailable());
    EXPECT_EQ(CudaTools::cudaGetDevice(), 0);
    EXPECT_EQ(CudaTools::cudaGetDeviceCount(), 0);
    CudaTools::cudaSetDevice(3);
    EXPECT_EQ(CudaTools::cudaGetDevice(), 0);
    EXPECT_EQ(CudaTools::getCudaMemoryInfo(), (std::pair<std::size_t, std::size_t>{0, 0}));
}

TEST(CudaTools, CommandsDoNothing) {
    EXPECT_NO_THROW(CudaTools::cudaDeviceSynchronize());
    EXPECT_NO_THROW(CudaTools::nvtxPush("range"));
    EXPECT_NO_THROW(CudaTools::nvtxPop());
}

TEST(CudaStreamView, IsOneTriviallyCopyableWord) {
    EXPECT_TRUE(std::is_trivially_copyable_v<CudaStreamView>);
    EXPECT_EQ(sizeof(CudaStreamView), sizeof(void*));
    EXPECT_EQ(getDefaultStream().value, 0u);
    EXPECT_NE(getDefaultStream(), CudaStreamView{1});
}

TEST(CudaStream, OwnsAViewOfValueZero) {
    const CudaStream stream;
    EXPECT_EQ(stream.view(), getDefaultStream());
}

} // namespace
} // namespace Torvo
