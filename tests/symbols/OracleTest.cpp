// The tree against independent readers: for every leaf gdb can name, the
// address and size must equal what gdb reports for the same expression; every
// variable of a file linked with --gc-sections must be in its symbol table.
#include "TestElf.h"

#include "symbols/SymbolDatabase.h"

#include <QProcess>
#include <QStringList>

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <map>
#include <set>
#include <sstream>
#include <tuple>

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

// gdb's address and size of each expression, by its index; expressions gdb
// cannot evaluate have no answer.
std::map<std::size_t, std::pair<unsigned long, unsigned long>> gdbAnswers(const std::string& elf,
                                                                          const std::vector<std::string>& expressions)
{
    QStringList args{"-batch", "-nx", "-ex", "set width 0", QString::fromStdString(elf)};
    for (std::size_t i = 0; i < expressions.size(); ++i)
        args << "-ex" << QString("echo @%1:").arg(i) << "-ex"
             << QString("printf \"%lu %lu\\n\", (unsigned long)&(%1), (unsigned long)sizeof(%1)").arg(QString::fromStdString(expressions[i]));
    std::istringstream out(run(PLOTVIK_GDB, args));
    std::map<std::size_t, std::pair<unsigned long, unsigned long>> answers;
    std::string line;
    while (std::getline(out, line)) {
        std::size_t index = 0;
        unsigned long a = 0, s = 0;
        if (std::sscanf(line.c_str(), "@%zu:%lu %lu", &index, &a, &s) == 3 && index < expressions.size())
            answers[index] = {a, s};
    }
    return answers;
}

}  // namespace

// gcc writes a polymorphic class's definition in one unit only; the objects
// of the other unit (units_cpp_*) must still hold every member, where gdb
// finds them. In this corpus every "<Inherited>" part is a base, so gdb names
// its members through the derived object.
class Oracle : public ::testing::TestWithParam<const char*> {};

TEST_P(Oracle, AddressesAndSizesAgreeWithGdb)
{
    const std::string elf = testelf::corpus(GetParam());
    const bool units = elf.find("units_cpp") != std::string::npos;
    const std::vector<Leaf> leaves = cliLeaves(elf);
    ASSERT_GT(leaves.size(), units ? 8u : 30u);
    std::vector<const Leaf*> asked;
    std::vector<std::string> expressions;
    std::map<std::string, const Leaf*> byPath;
    for (const Leaf& l : leaves) {
        byPath.emplace(l.path, &l);
        // gdb takes neither the address nor the size of a bit-field, and
        // cannot name the virtual table pointer.
        if (l.typeId == kTypeBitField || l.path.find("._vptr.") != std::string::npos)
            continue;
        std::string expression = l.path;
        for (std::size_t at; (at = expression.find(".<Inherited>")) != std::string::npos;)
            expression.erase(at, 12);
        asked.push_back(&l);
        expressions.push_back(expression);
    }
    const auto answers = gdbAnswers(elf, expressions);
    for (const auto& [index, value] : answers) {
        EXPECT_EQ(asked[index]->address, value.first) << asked[index]->path;
        EXPECT_EQ(asked[index]->size, value.second) << asked[index]->path;
    }
    // Most leaves have plain C paths; only a few (function statics) are
    // beyond gdb's expressions. The declared classes' members all are not.
    if (units) {
        EXPECT_EQ(answers.size(), asked.size());
    }
    else {
        EXPECT_GE(answers.size() * 10, asked.size() * 7) << answers.size() << " of " << asked.size();
    }
    if (!units)
        return;
    // A base, members, array elements and a nested class of the declared
    // types, and the namesake in another namespace.
    for (const char* path : {"app::active.<Inherited>.used", "app::active.prio", "app::holder.queue.head", "app::holder.nested.level",
                             "app::holder.pair[1].tail", "app::lone.used", "other_queue.slots[2]", "app::base_queue.used"}) {
        ASSERT_TRUE(byPath.count(path)) << path;
        EXPECT_NE(byPath.at(path)->typeId, kTypeNone) << path;
    }
}

INSTANTIATE_TEST_SUITE_P(Corpus, Oracle,
                         ::testing::Values("shapes_c_dwarf4_O0.elf", "shapes_c_dwarf4_Os.elf", "shapes_c_dwarf5_O0.elf",
                                           "shapes_c_dwarf5_Os.elf", "shapes_cpp_dwarf4_O0.elf", "shapes_cpp_dwarf4_Os.elf",
                                           "shapes_cpp_dwarf5_O0.elf", "shapes_cpp_dwarf5_Os.elf", "shapes_c_newlib.elf",
                                           "units_cpp_dwarf4.elf", "units_cpp_dwarf5.elf"));

// gdb shows removed variables at 0 too; the symbol table is the judge: each
// variable in the tree has a symbol of its name at its address (gcc's "name.N"
// for a C function's static, "...::name" for a C++ one's).
TEST(SymbolTable, VariablesTheLinkerRemovedAreLeftOut)
{
    const std::set<std::string> kept = {"kept_counter", "kept_static", "hits", "gc::kept_ns", "seen"};
    const std::set<std::string> removed = {"dropped_counter", "dropped_pair", "dropped_static", "calls", "gc::dropped_ns",
                                           "gc::dropped_config", "count"};
    // The vector table's name in each form; without a symbol table the debug
    // information is all there is, and the removed stay.
    const std::vector<std::tuple<const char*, const char*, bool>> cases = {
        {"linked_out_1.elf", "vector_table", true},
        {"linked_out_2.elf", "table", true},
        {"linked_out_3.elf", "boot::vectors", true},
        {"linked_out_nosymtab.elf", "vector_table", false},
    };
    for (const auto& [file, table, symbolTable] : cases) {
        const std::string elf = testelf::corpus(file);
        SCOPED_TRACE(elf);
        std::multimap<unsigned long, std::string> symbols;
        std::istringstream nm(run(PLOTVIK_ARM_NM, {"-C", QString::fromStdString(elf)}));
        for (std::string line; std::getline(nm, line);) {
            char name[512] = {};
            unsigned long address = 0;
            if (std::sscanf(line.c_str(), "%lx %*c %511[^\n]", &address, name) == 2)
                symbols.emplace(address, name);
        }
        SymbolDatabase db;
        ASSERT_EQ(db.parseElf(elf, false, nullptr), 0);
        std::set<std::string> variables;
        for (const Node* f : db.tree()->files)
            for (const Node* v = f->Children; v; v = v->Next) {
                variables.insert(v->Name);
                const auto [first, last] = symbols.equal_range(v->Address);
                const bool backed = std::any_of(first, last, [&](const auto& s) {
                    const std::string& n = s.second;
                    return n == v->Name || n.ends_with("::" + v->Name) ||
                           (n.starts_with(v->Name + ".") && std::isdigit(static_cast<unsigned char>(n[v->Name.size() + 1])));
                });
                EXPECT_TRUE(backed || !symbolTable) << v->Name << " at " << v->Address;
            }
        std::set<std::string> expected = kept;
        expected.insert(table);
        if (!symbolTable)
            expected.insert(removed.begin(), removed.end());
        EXPECT_EQ(variables, expected);
    }
}
