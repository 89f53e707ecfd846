// Files that cannot be trusted: each is loaded as the kind that its name says, and the loaded object is used.
// A refusal is correct; damage is not.

#include "support/FileKinds.hpp"
#include "support/FileMap.hpp"
#include "support/ObjectFiles.hpp"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

namespace Torvo {
namespace {

using namespace test;
namespace fs = std::filesystem;

const fs::path archivesPath = TORVO_ARCHIVES;
const fs::path damagedPath = archivesPath / "damaged";

std::vector<std::string> soundFilesOf(const FileKind& kind) {
    std::vector<std::string> files = kind.made();
    for (const std::string& name : kind.kept) files.push_back(contentOf(archivesPath / name));
    return files;
}

std::vector<std::string> damagedNames() {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(damagedPath))
        if (entry.path().filename() != "README.md") names.push_back(entry.path().filename().string());
    return names;
}

TEST(DamagedArchives, DoNoHarm) {
    EXPECT_FALSE(damagedNames().empty());
    for (const std::string& name : damagedNames()) {
        SCOPED_TRACE(name);
        try {
            feed(fileKind(name.substr(0, name.find('.'))), contentOf(damagedPath / name));
        } catch (const Finding& finding) {
            ADD_FAILURE() << finding.what;
        }
    }
}

TEST(DamagedArchives, AreToldInTheirTable) {
    const std::string table = contentOf(damagedPath / "README.md");
    for (const std::string& name : damagedNames())
        EXPECT_NE(table.find("`" + name + "`"), std::string::npos) << name;
}

// Else the tests of damaged ones would try no use of anything.
TEST(DamagedArchives, TheirSoundRelativesLoadAndAreUsed) {
    for (const FileKind& kind : fileKinds()) {
        SCOPED_TRACE(kind.name);
        const auto files = soundFilesOf(kind);
        EXPECT_FALSE(files.empty());
        try {
            for (const std::string& file : files) EXPECT_TRUE(feed(kind, file));
        } catch (const Finding& finding) {
            ADD_FAILURE() << finding.what;
        }
    }
}

// Code that damages files by their format must know the format, to the last byte.
TEST(DamagedArchives, TheMapOfASoundFileCoversIt) {
    for (const FileKind& kind : fileKinds()) {
        SCOPED_TRACE(kind.name);
        for (const std::string& file : soundFilesOf(kind))
            EXPECT_EQ(FileMap(kind.name, file).end(), file.size());
    }
}

} // namespace
} // namespace Torvo
