// `plotvik-cli symbols` lists, byte for byte, what it listed when every array
// element was a node of its own: reference/listings.sha256 holds a SHA-256 and
// a line count per file, recorded by reference/record-listings.sh (source and
// generated-folder paths written as @SRC@ and @GEN@). The recorded leaves
// agree with gdb's addresses and sizes and with the symbol tables' variables;
// a listing recorded anew wants the same comparison.
#include "TestElf.h"
#include "bench/symbols/BigFirmware.h"
#include "tests/TempFolder.h"

#include <QCryptographicHash>
#include <QProcess>

#include <gtest/gtest.h>

#include <fstream>

namespace {

struct Listing {
    QByteArray sha256;
    long lines = 0;
    QByteArray errors;  // what it printed on standard error
};

// The listing of `elf` as recorded: paths made neutral.
Listing list(const std::string& elf, const QByteArray& generated)
{
    QProcess cli;
    cli.setWorkingDirectory(QString::fromStdString(testtemp::folder().string()));  // no settings file there
    cli.start(PLOTVIK_CLI, {"symbols", QString::fromStdString(elf)});
    cli.waitForFinished(-1);
    // The corpus is built with its source folder mapped to /plotvik-src.
    QByteArray text = cli.readAllStandardOutput().replace(generated, "@GEN@").replace(PLOTVIK_SOURCE_DIR, "@SRC@");
    text.replace("/plotvik-src", "@SRC@");
    return {QCryptographicHash::hash(text, QCryptographicHash::Sha256).toHex(), static_cast<long>(text.count('\n')),
            cli.readAllStandardError()};
}

}  // namespace

TEST(Listing, EveryFileListsAsRecorded)
{
    const std::filesystem::path generated = testtemp::folder() / "listing-firmware";
    std::filesystem::create_directories(generated);
    double seconds = 0;
    ASSERT_FALSE(bench::buildBigFirmware(generated, 500, seconds).empty());

    std::ifstream recorded(std::string(PLOTVIK_LISTINGS) + "/listings.sha256");
    std::string sha256, name;
    long lines = 0;
    int files = 0;
    while (recorded >> sha256 >> lines >> name) {
        // Arrays over the old node budget were left out; they are listed now.
        if (name == "corpus/hostile_dwarf4/hostile_bulk_array.elf" || name == "corpus/hostile_dwarf4/hostile_all.elf")
            continue;
        const std::string rest = name.substr(name.find('/') + 1);
        const std::string path = name.starts_with("corpus/") ? testelf::corpus(rest)
                                 : name.starts_with("bin/")  ? std::string(PLOTVIK_BIN_DIR) + "/" + rest
                                                             : (generated / rest).string();
        const Listing now = list(path, QByteArray::fromStdString(generated.string()));
        EXPECT_EQ(std::tuple(now.lines, now.sha256.toStdString()), std::tuple(lines, sha256)) << name;
        // Intact firmware reports nothing (the DWARF 5 notice is only logged).
        const bool damaged = name.find("hostile") != std::string::npos || name.ends_with(".o");
        EXPECT_TRUE(damaged || now.errors.isEmpty()) << name << ": " << now.errors.toStdString();
        ++files;
    }
    EXPECT_GE(files, 30);
}
