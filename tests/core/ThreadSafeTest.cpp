#include "core/ThreadSafe.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <barrier>
#include <chrono>
#include <map>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace Torvo {
namespace {

TEST(ThreadSafe, PassesOnTheResult) {
    ThreadSafe<std::string> text;
    EXPECT_EQ(text.write([](std::string& s) { return (s = "four").size(); }), 4u);
    EXPECT_EQ(text.read([](const std::string& s) { return s + "!"; }), "four!");
}

TEST(ThreadSafe, LocksAreReleasedOnExceptions) {
    ThreadSafe<int> number;
    EXPECT_THROW(number.write([](int&) { throw std::runtime_error("in write"); }), std::runtime_error);
    EXPECT_THROW(number.read([](const int&) { throw std::runtime_error("in read"); }), std::runtime_error);
    number.write([](int& n) { n = 3; });
    EXPECT_EQ(number.read([](const int& n) { return n; }), 3);
}

TEST(ThreadSafe, ManyReadersAreInsideAtOnce) {
    constexpr int readers = 4;
    const ThreadSafe<int> number;
    std::barrier allInside(readers); // passed only when every reader holds the shared lock
    std::atomic<int> passed = 0;
    std::vector<std::thread> threads;
    for (int t = 0; t < readers; ++t)
        threads.emplace_back([&] {
            number.read([&](const int&) {
                allInside.arrive_and_wait();
                ++passed;
            });
        });
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(passed, readers);
}

TEST(ThreadSafe, AReaderWaitsForTheWriter) {
    ThreadSafe<int> number;
    std::thread reader;
    int seen = 0;
    number.write([&](int& n) {
        reader = std::thread([&] { seen = number.read([](const int& value) { return value; }); });
        std::this_thread::sleep_for(std::chrono::milliseconds(50)); // time to come in where nothing holds it
        n = 1;
    });
    reader.join();
    EXPECT_EQ(seen, 1);
}

TEST(ThreadSafe, WritersExcludeOneAnother) {
    constexpr int writers = 4, rounds = 2000;
    ThreadSafeMap<int, int> map;
    std::vector<std::thread> threads;
    for (int t = 0; t < writers; ++t)
        threads.emplace_back([&map] {
            for (int i = 0; i < rounds; ++i) map.write([i](std::map<int, int>& m) { ++m[i % 7]; });
        });
    for (auto& thread : threads) thread.join();
    const int sum = map.read([](const std::map<int, int>& m) {
        int total = 0;
        for (const auto& [key, count] : m) total += count;
        return total;
    });
    EXPECT_EQ(sum, writers * rounds);
}

} // namespace
} // namespace Torvo
