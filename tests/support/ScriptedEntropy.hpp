#pragma once

#include "core/Integers.hpp"

#include <cstddef>
#include <cstdint>
#include <optional>

namespace Torvo::test {

/// During the lifetime of such an object the sources of seeds, the kernel's pool (getrandom) and
/// std::random_device, follow its script. Only one may exist at a time.
class ScriptedEntropy {
public:
    enum class Thread { Any, Others };

    struct Script {
        int kernelError = 0;         ///< getrandom fails with this error number
        bool doesDeviceFail = false; ///< std::random_device throws "no device"
        Thread whose =
            Thread::Any;       ///< of whom they fail: of all threads, or of all but the one that made this
        u64 interruptions = 0; ///< so many calls of getrandom are interrupted by a signal first
        std::size_t longest = 256;                  ///< bytes that one call of getrandom gives at most
        std::optional<std::uint8_t> firstByte = {}; ///< getrandom gives this byte, the next number, and so on
        std::optional<std::uint32_t> deviceWord = {}; ///< the device gives this
    };

    explicit ScriptedEntropy(const Script& script);
    ~ScriptedEntropy();
    ScriptedEntropy(const ScriptedEntropy&) = delete;
    ScriptedEntropy& operator=(const ScriptedEntropy&) = delete;

    /// Calls of getrandom by the thread that made this.
    u64 callCount() const;
};

} // namespace Torvo::test
