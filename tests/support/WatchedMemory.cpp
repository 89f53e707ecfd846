#include "support/WatchedMemory.hpp"

#include <malloc.h>

#include <algorithm>
#include <atomic>
#include <bitset>
#include <cstring>
#include <tuple>
#include <utility>

namespace Torvo::test {

namespace {

std::atomic<u64> poison{0}; // 0: none

/// The secrets, and the lowest bits of their first words, by which most words are passed over.
struct Search {
    std::vector<FreedMemory::Secret> secrets;
    std::bitset<4096> firstWords;

    bool isAt(const u64* words) const {
        return firstWords[*words % firstWords.size()] &&
               std::any_of(secrets.begin(), secrets.end(), [&](const auto& secret) {
                   return std::equal(secret.begin(), secret.end(), words);
               });
    }
};

Search search;
std::atomic<bool> isSearching{false};
std::atomic<u64> found{0};

} // namespace

PoisonedMemory::PoisonedMemory(u64 word) {
    poison = word;
}

PoisonedMemory::~PoisonedMemory() {
    poison = 0;
}

FreedMemory::FreedMemory(std::vector<Secret> secrets) {
    search.secrets = std::move(secrets);
    search.firstWords.reset();
    for (const Secret& secret : search.secrets) search.firstWords.set(secret[0] % search.firstWords.size());
    found = 0;
    isSearching = true;
}

FreedMemory::~FreedMemory() {
    isSearching = false;
}

u64 FreedMemory::countFound() const {
    return found;
}

void onAllocation(void* block) noexcept {
    const u64 word = poison.load(std::memory_order_relaxed);
    if (word == 0) return;
    auto* at = static_cast<unsigned char*>(block);
    const std::size_t bytes = malloc_usable_size(block);
    for (std::size_t i = 0; i < bytes; i += sizeof word)
        std::memcpy(at + i, &word, std::min(sizeof word, bytes - i));
}

void onRelease(void* block) noexcept {
    constexpr std::size_t window = std::tuple_size_v<FreedMemory::Secret>;
    if (block == nullptr || !isSearching.load(std::memory_order_acquire)) return;
    const auto* words = static_cast<const u64*>(block);
    const std::size_t count = malloc_usable_size(block) / sizeof(u64);
    for (std::size_t i = 0; i + window <= count; ++i) {
        if (!search.isAt(words + i)) continue;
        ++found;
        return;
    }
}

} // namespace Torvo::test
