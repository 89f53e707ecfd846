#include "support/ForkedChild.hpp"

#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <exception>
#include <span>
#include <stdexcept>

namespace Torvo::test {

namespace {

constexpr unsigned patience = 60; // seconds

void send(int pipeEnd, const std::vector<u64>& words) {
    for (auto left = std::as_bytes(std::span(words)); !left.empty();) {
        const ssize_t sent = write(pipeEnd, left.data(), left.size());
        if (sent <= 0) throw std::runtime_error("the child cannot send its result");
        left = left.subspan(static_cast<std::size_t>(sent));
    }
}

/// Until the last child that holds the other end has ended.
std::vector<u64> receive(int pipeEnd) {
    std::vector<u64> words;
    std::size_t byteCount = 0;
    for (;;) {
        words.resize(byteCount / sizeof(u64) + 1000);
        const auto room = std::as_writable_bytes(std::span(words)).subspan(byteCount);
        const ssize_t got = read(pipeEnd, room.data(), room.size());
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) break;
        byteCount += static_cast<std::size_t>(got);
    }
    words.resize(byteCount / sizeof(u64));
    return words;
}

[[noreturn]] void live(int pipeEnd, const std::function<std::vector<u64>()>& body) {
    std::signal(SIGALRM, SIG_DFL);
    alarm(patience); // a child that hangs dies of it
    try {
        send(pipeEnd, body());
    } catch (const std::exception& exception) {
        std::fprintf(stderr, "in the child: %s\n", exception.what());
        _exit(1);
    }
    _exit(0);
}

/// Whether the child ended well; if not, the result says how it ended.
bool hasEndedWell(pid_t child) {
    int status = 0;
    while (waitpid(child, &status, 0) < 0)
        if (errno != EINTR) return false;
    if (WIFSIGNALED(status)) {
        ADD_FAILURE() << (WTERMSIG(status) == SIGALRM ? "the child hangs" : "the child died of signal ")
                      << WTERMSIG(status);
        return false;
    }
    EXPECT_EQ(WEXITSTATUS(status), 0) << "exit status of the child";
    return WEXITSTATUS(status) == 0;
}

} // namespace

std::vector<u64> inChild(const std::function<std::vector<u64>()>& body) {
    int ends[2];
    if (pipe(ends) != 0) throw std::runtime_error("no pipe");
    const pid_t child = fork();
    if (child == 0) live(ends[1], body);
    close(ends[1]);
    auto words = receive(ends[0]);
    close(ends[0]);
    if (child < 0) throw std::runtime_error("no child");
    if (!hasEndedWell(child)) words.clear();
    return words;
}

} // namespace Torvo::test
