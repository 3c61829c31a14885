// The tree against an independent reader: for every leaf gdb can name, the
// address and size must equal what gdb reports for the same expression.
#include "TestElf.h"

#include <QProcess>
#include <QStringList>

#include <gtest/gtest.h>

#include <cstdio>
#include <map>
#include <sstream>

namespace {

struct Leaf {
    std::string path;
    unsigned long address = 0;
    unsigned long size = 0;
    int typeId = 0;
};

std::string run(const QString& program, const QStringList& args, int* exitCode = nullptr)
{
    QProcess p;
    p.start(program, args);
    p.waitForFinished(120000);
    if (exitCode)
        *exitCode = p.exitCode();
    return p.readAllStandardOutput().toStdString();
}

std::vector<Leaf> cliLeaves(const std::string& elf)
{
    int code = -1;
    std::istringstream out(run(PLOTVIK_CLI, {"symbols", QString::fromStdString(elf)}, &code));
    EXPECT_EQ(code, 0);
    std::vector<Leaf> leaves;
    std::string line;
    while (std::getline(out, line)) {
        std::vector<std::string> f;
        std::string field;
        std::istringstream fields(line);
        while (std::getline(fields, field, '\t'))
            f.push_back(field);
        EXPECT_EQ(f.size(), 8u) << line;
        if (f.size() != 8)
            continue;
        leaves.push_back({f[0], std::stoul(f[1], nullptr, 16), std::stoul(f[2]), std::stoi(f[3])});
    }
    return leaves;
}

}  // namespace

class Oracle : public ::testing::TestWithParam<const char*> {};

TEST_P(Oracle, AddressesAndSizesAgreeWithGdb)
{
    const std::string elf = testelf::corpus(GetParam());
    const std::vector<Leaf> leaves = cliLeaves(elf);
    ASSERT_GT(leaves.size(), 30u);
    QStringList args{"-batch", "-nx", "-ex", "set width 0", QString::fromStdString(elf)};
    std::vector<const Leaf*> asked;
    for (const Leaf& l : leaves) {
        if (l.typeId == 14)
            continue;  // gdb takes neither the address nor the size of a bit-field
        const auto i = QString::number(asked.size());
        args << "-ex" << QString("echo @%1:").arg(i)
             << "-ex" << QString("printf \"%lu %lu\\n\", (unsigned long)&(%1), (unsigned long)sizeof(%1)").arg(QString::fromStdString(l.path));
        asked.push_back(&l);
    }
    std::istringstream out(run(PLOTVIK_GDB, args));
    std::map<std::size_t, std::pair<unsigned long, unsigned long>> answers;
    std::string line;
    while (std::getline(out, line)) {
        std::size_t index = 0;
        unsigned long a = 0, s = 0;
        if (std::sscanf(line.c_str(), "@%zu:%lu %lu", &index, &a, &s) == 3 && index < asked.size())
            answers[index] = {a, s};
    }
    std::size_t checked = 0;
    for (const auto& [index, value] : answers) {
        const Leaf& l = *asked[index];
        EXPECT_EQ(l.address, value.first) << l.path;
        EXPECT_EQ(l.size, value.second) << l.path;
        ++checked;
    }
    // Most leaves have plain C paths; only a few (function statics, the
    // "<Inherited>" parts) are beyond gdb's expressions.
    EXPECT_GE(checked * 10, asked.size() * 7) << checked << " of " << asked.size();
}

INSTANTIATE_TEST_SUITE_P(Corpus, Oracle,
                         ::testing::Values("shapes_c_dwarf4_O0.elf", "shapes_c_dwarf4_Os.elf", "shapes_c_dwarf5_O0.elf",
                                           "shapes_c_dwarf5_Os.elf", "shapes_cpp_dwarf4_O0.elf", "shapes_cpp_dwarf4_Os.elf",
                                           "shapes_cpp_dwarf5_O0.elf", "shapes_cpp_dwarf5_Os.elf", "shapes_c_newlib.elf"));
