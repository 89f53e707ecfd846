#include "crypto/SystemSeed.hpp"

#include "core/SecureWipe.hpp"
#include "crypto/Messages.hpp"

#include <Torvo/RuntimeException.hpp>

#include <sys/random.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <random>
#include <stdexcept>
#include <string>
#include <system_error>

namespace Torvo {

namespace {

using Words = std::array<std::uint32_t, 4>;

[[noreturn]] void throwFailed(const char* source, const std::string& reason) {
    throw RuntimeException(std::string(message::cannotSeed) + source + " failed (" + reason +
                           message::letSourceBeUsed);
}

// A signal can interrupt the call only before the pool is filled after the start of the system.
void readKernelPool(Words& words) {
    auto* next = reinterpret_cast<char*>(words.data());
    for (std::size_t left = sizeof words; left > 0;) {
        const ssize_t got = getrandom(next, left, 0);
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) throwFailed("getrandom", std::generic_category().message(got < 0 ? errno : EIO));
        next += got;
        left -= static_cast<std::size_t>(got);
    }
}

void readRandomDevice(Words& words) {
    try {
        std::random_device device("default");
        for (auto& word : words) word = device();
    } catch (const std::runtime_error& error) {
        throwFailed("std::random_device", error.what());
    }
}

} // namespace

void drawSystemSeed(std::array<unsigned long, 4>& seed) {
    Words device{}, kernel{};
    readRandomDevice(device);
    readKernelPool(kernel);
    for (std::size_t i = 0; i < seed.size(); ++i) seed[i] = device[i] ^ kernel[i];
    utils::wipe(device.data(), sizeof device);
    utils::wipe(kernel.data(), sizeof kernel);
}

} // namespace Torvo
