// Usage: soak SECONDS [SEED]
//
// Eight threads share a context, a pack that reads its keys from a directory when they are first asked for,
// an evaluator and a bootstrapper, all of the toy preset. Each draws operations from a list and compares what
// comes out, word for word, with what one thread alone got from the same list beforehand. In the second half
// of the time two of the threads drop pack, evaluator and bootstrapper again and again and open new ones,
// while the others compute with those that they hold. The first difference, an exception, or memory that
// grows ends the run with status 1.

#include "support/Bytes.hpp"
#include "support/Sanitizer.hpp"
#include "support/Seeded.hpp"
#include "support/TemporaryDirectory.hpp"

#include <Torvo/Bootstrapper.hpp>
#include <Torvo/KeyGenerator.hpp>
#include <Torvo/Randomseeds.hpp>
#include <Torvo/Torvo.hpp>

#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <mutex>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

using namespace Torvo;
using namespace Torvo::test;

constexpr u64 threadCount = 8, renewingThreads = 2;
constexpr u64 operationCount = 512;
constexpr u64 fewSlots = 2, fullSlots = 5; // log2
constexpr u64 topLevel = 12, lowLevel = 3; // of a fresh ciphertext, and of one to bootstrap

// ---- what is shared

std::string keysOfPowers(const std::string& directory) {
    return directory + "/powers";
}

/// Two key directories: one with the keys of every operation here, and one where rotations have to be put
/// together from those by powers of two.
void makeKeys(const Context& context, const SecretKey& secretKey, const std::string& directory) {
    KeyGenerator all(context, secretKey), powers(context, secretKey);
    all.genEncKey();
    all.genMultKey();
    all.genConjKey();
    all.genRotKeyBundle();
    for (const u64 log_slots : {fewSlots, fullSlots}) all.genRotKeysForBootstrap(log_slots);
    all.save(directory);
    powers.genRotKeyBundle();
    std::filesystem::create_directory(keysOfPowers(directory));
    powers.save(keysOfPowers(directory));
}

/// What one generation of the shared objects consists of.
struct Tools {
    Tools(const Context& context, const std::string& directory)
        : keys(context, directory), evaluator(context, keys), composer(context, keysOfPowers(directory)),
          bootstrapper(evaluator, fewSlots) {
        bootstrapper.makeBootConstants(fullSlots);
    }

    KeyPack keys;
    HomEvaluator evaluator, composer;
    Bootstrapper bootstrapper;
};

struct World {
    explicit World(u64 seed) {
        setSeed({seed, 1, 2, 3});
        makeKeys(context, secretKey, directory.path());
        const KeyPack keys(context, directory.path());
        Seeded random(seed);
        for (const u64 log_slots : {fewSlots, fullSlots})
            for (const u64 level : {topLevel, lowLevel})
                for (int i = 0; i < 2; ++i) {
                    messages.push_back(random.message(log_slots));
                    encryptor.encrypt(messages.back(), keys, inputs.emplace_back(context), level, 0);
                }
    }

    TemporaryDirectory directory;
    Context context = makeContext(ParameterPreset::FX);
    SecretKey secretKey{context};
    Encryptor encryptor{context};
    Decryptor decryptor{context};
    std::vector<Message> messages;
    std::vector<Ciphertext> inputs; ///< pairs of the same slots and level
};

// ---- operations

struct Operation {
    std::size_t kind, first, second; ///< and two inputs of one pair
    u64 number;                      ///< for what else it needs
};

/// What came out, in 64 bits.
using Digest = std::size_t;

Digest digestOf(const Ciphertext& ciphertext) {
    return std::hash<std::string>()(bytesOf([&](std::ostream& out) { ciphertext.save(out); }));
}

Digest digestOf(const Message& message) {
    return std::hash<std::string>()(bytesOf([&](std::ostream& out) { message.save(out); }));
}

struct Task {
    const World& world;
    const Tools& tools;
    const Operation& operation;

    const Ciphertext& a() const { return world.inputs[operation.first]; }
    const Ciphertext& b() const { return world.inputs[operation.second]; }

    /// What `evaluate(out)` leaves in a ciphertext.
    template <class Evaluate>
    Digest into(Evaluate&& evaluate) const {
        Ciphertext out(world.context);
        evaluate(out);
        return digestOf(out);
    }
};

Digest add(const Task& t) {
    return t.into([&](Ciphertext& out) { t.tools.evaluator.add(t.a(), t.b(), out); });
}

Digest multiply(const Task& t) {
    return t.into([&](Ciphertext& out) { t.tools.evaluator.mult(t.a(), t.b(), out); });
}

Digest multiplyByMessage(const Task& t) {
    const Message& message = t.world.messages[t.operation.second];
    return t.into([&](Ciphertext& out) { t.tools.evaluator.mult(t.a(), message, out); });
}

Digest levelDown(const Task& t) {
    return t.into([&](Ciphertext& out) { t.tools.evaluator.levelDown(t.a(), t.operation.number % 4, out); });
}

Digest rotate(const Task& t) {
    const u64 index = u64{1} << t.operation.number % 5;
    return t.into([&](Ciphertext& out) { t.tools.evaluator.leftRotate(t.a(), index, out); });
}

Digest composeRotation(const Task& t) {
    const u64 index = 3 + t.operation.number % 11; // powers of two among them
    return t.into([&](Ciphertext& out) { t.tools.composer.rightRotate(t.a(), index, out); });
}

Digest conjugate(const Task& t) {
    return t.into([&](Ciphertext& out) { t.tools.evaluator.conjugate(t.a(), out); });
}

Digest bootstrap(const Task& t) {
    return t.into([&](Ciphertext& out) { t.tools.bootstrapper.bootstrap(t.a(), out); });
}

Digest bootstrapComplex(const Task& t) {
    Ciphertext out = t.a();
    t.tools.bootstrapper.bootstrap(out, out, true);
    return digestOf(out);
}

/// From the thread's own generator, restarted.
Digest encrypt(const Task& t) {
    setSeed({t.operation.number, 5, 6, 7});
    const Message& message = t.world.messages[t.operation.first];
    return t.into([&](Ciphertext& out) { t.world.encryptor.encrypt(message, t.tools.keys, out); });
}

Digest decrypt(const Task& t) {
    Message out;
    t.world.decryptor.decrypt(t.a(), t.world.secretKey, out);
    return digestOf(out);
}

Digest copy(const Task& t) {
    Ciphertext one = t.a(), other = t.b();
    std::swap(one, other);
    other = one;
    return digestOf(other);
}

Digest throughStream(const Task& t) {
    std::stringstream stream(bytesOf([&](std::ostream& out) { t.a().save(out); }));
    return t.into([&](Ciphertext& out) { out.load(stream); });
}

Digest throughFile(const Task& t) {
    static std::atomic<u64> count = 0;
    const std::string path = t.world.directory.path() + "/object" + std::to_string(count++);
    t.a().save(path);
    const Digest digest = t.into([&](Ciphertext& out) { out.load(path); });
    std::filesystem::remove(path);
    return digest;
}

/// A pack of what others have loaded by now, and of the key that is used.
Digest packThroughStream(const Task& t) {
    t.tools.keys.loadConjKey();
    std::stringstream stream;
    t.tools.keys.save(stream);
    KeyPack keys(t.world.context);
    keys.load(stream);
    const HomEvaluator evaluator(t.world.context, keys);
    return t.into([&](Ciphertext& out) { evaluator.conjugate(t.a(), out); });
}

struct Kind {
    const char* name;
    u64 share; ///< of the list
    Digest (*run)(const Task&);
};

constexpr Kind kinds[] = {
    {"add", 2, add},
    {"multiply", 4, multiply},
    {"multiply by a message", 2, multiplyByMessage},
    {"level down", 2, levelDown},
    {"rotate", 4, rotate},
    {"compose a rotation", 4, composeRotation},
    {"conjugate", 2, conjugate},
    {"bootstrap", 2, bootstrap},
    {"bootstrap complex", 1, bootstrapComplex},
    {"encrypt", 2, encrypt},
    {"decrypt", 2, decrypt},
    {"copy", 2, copy},
    {"through a stream", 2, throughStream},
    {"through a file", 2, throughFile},
    {"pack through a stream", 1, packThroughStream},
};
constexpr std::size_t kindCount = std::size(kinds);

std::vector<Operation> drawOperations(const World& world, u64 seed) {
    std::vector<std::size_t> shares;
    for (std::size_t kind = 0; kind < kindCount; ++kind) shares.insert(shares.end(), kinds[kind].share, kind);
    Seeded random(seed);
    std::vector<Operation> operations;
    for (u64 i = 0; i < operationCount; ++i) {
        const std::size_t input = random.below(world.inputs.size());
        operations.push_back({shares[random.below(shares.size())], input, input ^ 1, random.word()});
    }
    return operations;
}

// ---- the run

u64 residentBytes() {
    u64 all = 0, resident = 0;
    std::ifstream("/proc/self/statm") >> all >> resident;
    return resident * static_cast<u64>(sysconf(_SC_PAGESIZE));
}

class Soak {
public:
    Soak(u64 seconds, u64 seed)
        : half_(std::chrono::milliseconds(500 * seconds)), seed_(seed), world_(seed),
          operations_(drawOperations(world_, seed)), tools_(newTools()) {
        // Of one thread, with objects of its own.
        const auto tools = newTools();
        for (const Operation& operation : operations_) expected_.push_back(run(*tools, operation));
    }

    /// Whether all went well.
    bool soak() {
        runPhase("shared objects", threadCount);
        if (!failed_) runPhase("shared objects that come and go", threadCount - renewingThreads);
        for (std::size_t kind = 0; kind < kindCount; ++kind)
            std::printf("%10lu  %s\n", counts_[kind].load(), kinds[kind].name);
        std::printf("%10lu  renewals\n%10lu  mismatches\n", renewals_.load(), mismatches_.load());
        return !failed_;
    }

private:
    using Clock = std::chrono::steady_clock;

    std::shared_ptr<const Tools> newTools() const {
        return std::make_shared<const Tools>(world_.context, world_.directory.path());
    }

    Digest run(const Tools& tools, const Operation& operation) const {
        return kinds[operation.kind].run({world_, tools, operation});
    }

    std::shared_ptr<const Tools> currentTools() const {
        const std::lock_guard lock(toolsMutex_);
        return tools_;
    }

    void renewTools() {
        auto fresh = newTools();
        const std::lock_guard lock(toolsMutex_);
        tools_.swap(fresh); // what others do not hold goes here, and its keys with it
    }

    void runPhase(const char* name, u64 computing) {
        renewTools(); // keys are not loaded yet
        const u64 start = residentBytes();
        u64 highest = start;
        isOver_ = false;
        std::vector<std::thread> threads;
        for (u64 i = 0; i < threadCount; ++i)
            threads.emplace_back([this, i, computing] { i < computing ? compute(i) : renew(); });
        for (const auto end = Clock::now() + half_; Clock::now() < end && !failed_;) {
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
            highest = std::max(highest, residentBytes());
            if (highest > start + growthBound) fail(name, "memory grows");
        }
        isOver_ = true;
        for (std::thread& thread : threads) thread.join();
        std::printf("%s: %.1f s, %lu MiB resident, %lu more at most\n", name,
                    std::chrono::duration<double>(half_).count(), start >> 20, (highest - start) >> 20);
    }

    void compute(u64 thread) {
        Seeded random(seed_ + 1 + thread);
        while (!isOver_ && !failed_) {
            const std::size_t index = random.below(operations_.size());
            const Operation& operation = operations_[index];
            const char* name = kinds[operation.kind].name;
            try {
                const bool isAsExpected = run(*currentTools(), operation) == expected_[index];
                ++counts_[operation.kind];
                if (isAsExpected) continue;
                ++mismatches_;
                fail(name, "other words than one thread got, operation " + std::to_string(index));
            } catch (const std::exception& failure) {
                fail(name, failure.what());
            }
        }
    }

    void renew() {
        while (!isOver_ && !failed_) {
            try {
                renewTools();
                ++renewals_;
                // Long enough for the others to load some keys.
                std::this_thread::sleep_for(std::chrono::milliseconds(20));
            } catch (const std::exception& failure) {
                fail("renewal", failure.what());
            }
        }
    }

    void fail(const std::string& where, const std::string& what) {
        failed_ = true;
        std::fprintf(stderr, "FAILED, seed %lu: %s: %s\n", seed_, where.c_str(), what.c_str());
    }

    /// All keys of a generation are some 10 MiB, and several generations may live at once. The sanitizers
    /// keep what was freed.
    static constexpr u64 growthBound = (newCanThrow ? u64{512} : u64{4096}) << 20;

    const std::chrono::milliseconds half_;
    const u64 seed_;
    const World world_;
    const std::vector<Operation> operations_;
    std::vector<Digest> expected_;
    mutable std::mutex toolsMutex_;
    std::shared_ptr<const Tools> tools_;
    std::atomic<bool> isOver_ = false, failed_ = false;
    std::atomic<u64> counts_[kindCount]{}, mismatches_ = 0, renewals_ = 0;
};

} // namespace

int main(int argc, char** argv) {
    const u64 seconds = argc > 1 ? std::strtoull(argv[1], nullptr, 10) : 0;
    const u64 seed = argc > 2 ? std::strtoull(argv[2], nullptr, 10) : 1;
    if (seconds == 0 || argc > 3) {
        std::fputs("usage: soak SECONDS [SEED]\n", stderr);
        return 2;
    }
    try {
        return Soak(seconds, seed).soak() ? 0 : 1;
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "FAILED, seed %lu: %s\n", seed, failure.what());
        return 1;
    }
}
