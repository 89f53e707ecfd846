#include "support/ScriptedEntropy.hpp"

#include <dlfcn.h>
#include <sys/random.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <stdexcept>

namespace Torvo::test {

namespace {

using Script = ScriptedEntropy::Script;

std::atomic<const Script*> current{nullptr}; ///< null where nothing is scripted
std::atomic<u64> interruptionsLeft{0}, bytesGiven{0}, calls{0};
thread_local bool isScriptWriter = false;

bool isToFail(const Script& script) {
    return script.whose == ScriptedEntropy::Thread::Any || !isScriptWriter;
}

ssize_t fail(int error) {
    errno = error;
    return -1;
}

/// getrandom by the script.
ssize_t scriptedRandom(const Script& script, void* out, std::size_t length, unsigned flags) {
    if (isScriptWriter) ++calls;
    if (script.kernelError != 0 && isToFail(script)) return fail(script.kernelError);
    if (interruptionsLeft > 0) {
        --interruptionsLeft;
        return fail(EINTR);
    }
    length = std::min(length, script.longest);
    if (!script.firstByte) return syscall(SYS_getrandom, out, length, flags);
    for (std::size_t i = 0; i < length; ++i)
        static_cast<std::uint8_t*>(out)[i] = static_cast<std::uint8_t>(*script.firstByte + bytesGiven++);
    return static_cast<ssize_t>(length);
}

} // namespace

ScriptedEntropy::ScriptedEntropy(const Script& script) {
    isScriptWriter = true;
    interruptionsLeft = script.interruptions;
    bytesGiven = calls = 0;
    current = new Script(script);
}

ScriptedEntropy::~ScriptedEntropy() {
    delete current.exchange(nullptr);
    isScriptWriter = false;
}

u64 ScriptedEntropy::callCount() const {
    return calls;
}

} // namespace Torvo::test

// Those of the whole test program, in place of the ones of the system's libraries.

extern "C" ssize_t getrandom(void* out, size_t length, unsigned flags) {
    const auto* script = Torvo::test::current.load();
    if (script == nullptr) return syscall(SYS_getrandom, out, length, flags);
    return Torvo::test::scriptedRandom(*script, out, length, flags);
}

constexpr const char* nameOfDeviceWord = "_ZNSt13random_device9_M_getvalEv";

/// std::random_device's member function that draws a word.
extern "C" unsigned drawDeviceWord(void* device) asm("_ZNSt13random_device9_M_getvalEv");

extern "C" unsigned drawDeviceWord(void* device) {
    const auto* script = Torvo::test::current.load();
    if (script != nullptr && script->doesDeviceFail && Torvo::test::isToFail(*script))
        throw std::runtime_error("no device");
    if (script != nullptr && script->deviceWord) return *script->deviceWord;
    static const auto original = reinterpret_cast<unsigned (*)(void*)>(dlsym(RTLD_NEXT, nameOfDeviceWord));
    return original(device);
}
