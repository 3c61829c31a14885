#include "TestElf.h"

#include "symbols/DebugInfo.h"
#include "symbols/ElfFile.h"

#include <gtest/gtest.h>

#include <algorithm>

using testelf::corpus;
using testelf::ErrorCapture;

namespace {

const std::string kGood = "shapes_c_dwarf5_O0.elf";

}  // namespace

// Files that are no executable ELF of a known form: each gives one error. A
// row with an offset patches the good file there; without, it is the file.
TEST(ElfOpen, BrokenFilesGiveTheirErrors)
{
    std::vector<unsigned char> header64(64);
    std::copy_n("\x7f" "ELF\2\1\1", 7, header64.begin());
    header64[16] = 2;  // an executable,
    header64[20] = 1;  // of file version 1
    header64.resize(60);
    std::vector<unsigned char> bigEndian(52);
    std::copy_n("\x7f" "ELF\1\2\1", 7, bigEndian.begin());
    bigEndian[17] = 2;
    bigEndian[23] = 1;
    const struct {
        const char* name;
        int offset;
        std::vector<unsigned char> bytes;
        int code;  // 0: opens without an error
    } cases[] = {
        {"empty.elf", -1, {}, elf::kErrFileSize},
        {"text.elf", -1, {'h', 'e', 'l', 'l', 'o', ' ', 'w', 'o', 'r', 'l', 'd', '\n', 0, 0, 0, 0, 0, 0}, elf::kErrMagic},
        {"short.elf", -1, {0x7f, 'E', 'L', 'F'}, elf::kErrMagic},
        {"header.elf", -1, {0x7f, 'E', 'L', 'F', 1, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 2, 0}, elf::kErrFileSize},
        {"header64.elf", -1, header64, elf::kErrFileSize},
        {"big.elf", -1, bigEndian, 0},
        {"class.elf", 4, {0}, elf::kErrClassNone},
        {"data.elf", 5, {0}, elf::kErrDataNone},
        {"hversion.elf", 6, {2}, elf::kErrHeaderVersion},
        {"fversion.elf", 20, {2, 0, 0, 0}, elf::kErrFileVersion},
        {"magic.elf", 0, {0x7f, 'E', 'L', 'G'}, elf::kErrMagic},
    };
    for (const auto& c : cases) {
        std::vector<unsigned char> image = c.bytes;
        if (c.offset >= 0) {
            image = testelf::readBytes(corpus(kGood));
            std::copy(c.bytes.begin(), c.bytes.end(), image.begin() + c.offset);
        }
        ErrorCapture errors;
        elf::FilePtr f(elf::open(testelf::writeTemp(c.name, image), true));
        EXPECT_EQ(f == nullptr, c.code != 0) << c.name;
        std::vector<int> codes;
        for (const auto& r : errors.records)
            codes.push_back(r.code);
        EXPECT_EQ(codes, std::vector<int>(c.code != 0, c.code)) << c.name;
    }
    for (const auto& [name, code] :
         {std::pair{"shapes_c.o", elf::kErrNotExecutable}, std::pair{"no-such-file.elf", elf::kErrOpen}}) {
        ErrorCapture errors;
        EXPECT_EQ(elf::FilePtr(elf::open(corpus(name), false)), nullptr) << name;
        EXPECT_TRUE(errors.has(code)) << name;
    }
}

// Two files open at a time at most; a header-only open loads no debug
// information; a handle that is not a file is refused.
TEST(ElfOpen, TwoSlotsHeaderOnlyAndUnknownHandles)
{
    ErrorCapture errors;
    elf::FilePtr a(elf::open(corpus(kGood), true));
    elf::FilePtr b(elf::open(corpus(kGood), true));
    ASSERT_TRUE(a && b && errors.records.empty());
    EXPECT_EQ(std::tuple(a->loaded(), a->debugInfo().dieCount()), std::tuple(false, 0u));
    EXPECT_TRUE(!elf::FilePtr(elf::open(corpus(kGood), true)) && errors.has(elf::kErrTooManyOpen));
    b.reset();
    EXPECT_TRUE(elf::checkHandle(elf::FilePtr(elf::open(corpus(kGood), true)).get()));

    int notAFile = 0;
    EXPECT_FALSE(elf::checkHandle(reinterpret_cast<elf::File*>(&notAFile)));
    elf::close(reinterpret_cast<elf::File*>(&notAFile));
    EXPECT_EQ(std::ranges::count(errors.records, elf::kErrInvalidHandle, &elf::ErrorRecord::code), 2);
}

// Each kind of location a variable can have, and each expression the reader
// refuses with its error.
TEST(Location, Evaluation)
{
    const struct {
        std::vector<unsigned char> expr;
        bool isStatic;
        std::uint64_t address;
        int error;
    } cases[] = {
        {{0x03, 0x10, 0x20, 0x00, 0x20}, true, 0x20002010, 0},
        {{0x03, 0x00, 0x10, 0x00, 0x20, 0x23, 0x08}, true, 0x20001008, 0},
        {{0x91, 0x7c}, false, 0, 0},                          // fbreg -4
        {{0x50}, false, 0, 0},                                // reg0
        {{0x03, 0, 0, 0, 0x20, 0x9f}, false, 0x20000000, 0},  // stack_value: a value, not a place
        {{0x9e, 9, 1, 2, 3, 4, 5, 6, 7, 8, 9}, false, 0, 46},
        {{0xa3, 0x00}, false, 0, 47},
        {{0x03, 0x00, 0x10}, false, 0, 50},  // truncated address
        {{0x9d, 4, 0}, false, 0, 49},
    };
    for (const auto& c : cases) {
        const elf::Location loc = elf::evaluateLocation(c.expr.data(), c.expr.size(), 4, 4);
        EXPECT_EQ(std::tuple(loc.isStatic, loc.error, loc.isStatic ? loc.address : 0),
                  std::tuple(c.isStatic, c.error, c.isStatic ? c.address : 0))
            << int(c.expr[0]);
    }
    std::vector<unsigned char> pieces;
    for (int i = 0; i < 17; ++i)
        pieces.insert(pieces.end(), {0x50, 0x93, 4});
    EXPECT_EQ(elf::evaluateLocation(pieces.data(), pieces.size(), 4, 4).error, 48);
    const unsigned char addrx[] = {0xa1, 0x05};
    const elf::Location x = elf::evaluateLocation(addrx, sizeof addrx, 4, 4);
    EXPECT_EQ(std::tuple(x.isStatic, x.indexed, x.addrIndex), std::tuple(true, true, 5u));
}
