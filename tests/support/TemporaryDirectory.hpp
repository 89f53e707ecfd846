#pragma once

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>

namespace Torvo::test {

/// An empty directory of this object's own, removed with all that is in it.
class TemporaryDirectory {
public:
    TemporaryDirectory() {
        path_ = (std::filesystem::temp_directory_path() / "torvo-test-XXXXXX").string();
        if (mkdtemp(path_.data()) == nullptr) throw std::runtime_error("no temporary directory");
    }
    ~TemporaryDirectory() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

    const std::string& path() const { return path_; }

private:
    std::string path_;
};

} // namespace Torvo::test
