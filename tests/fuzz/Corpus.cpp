// Usage: fuzz_corpus ARCHIVES DIRECTORY
//
// Lays out what the fuzz targets begin with: for each kind of file a folder of that name under DIRECTORY,
// with the files of that kind from ARCHIVES, sound and damaged, and those that are made on the spot. Prints
// the kinds, one a line.

#include "support/FileKinds.hpp"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

namespace {

namespace fs = std::filesystem;
using Torvo::test::FileKind;

void copyInto(const fs::path& folder, const fs::path& file, const std::string& name) {
    fs::copy_file(file, folder / name, fs::copy_options::overwrite_existing);
}

void layOut(const FileKind& kind, const fs::path& archives, const fs::path& folder) {
    fs::create_directories(folder);
    int number = 0;
    for (const std::string& name : kind.kept)
        copyInto(folder, archives / name, "kept" + std::to_string(number++));
    for (const std::string& bytes : kind.made())
        std::ofstream(folder / ("made" + std::to_string(number++)), std::ios::binary) << bytes;
    if (!fs::is_directory(archives / "damaged")) return;
    for (const auto& entry : fs::directory_iterator(archives / "damaged")) {
        const std::string name = entry.path().filename().string();
        if (name.substr(0, name.find('.')) == kind.name) copyInto(folder, entry.path(), name);
    }
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fputs("usage: fuzz_corpus ARCHIVES DIRECTORY\n", stderr);
        return 2;
    }
    for (const FileKind& kind : Torvo::test::fileKinds()) {
        layOut(kind, argv[1], fs::path(argv[2]) / kind.name);
        std::puts(kind.name.c_str());
    }
}
