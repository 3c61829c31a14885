// hostile_elf BASE.elf OUTDIR KIND...: writes copies of a firmware built from
// corpus/hostile*.c, each with one kind of damage to its debug information
// (KIND "all": every other kind at once), as a malicious or broken toolchain
// could leave it. (DWARF 5 keeps array bounds in the abbreviations, shared
// between entries, so the array kinds are for DWARF 4.) The entries are found
// with the project's own loader on the intact file; an attribute's bytes by
// their value, which must occur once in the entry. Exits non-zero when the
// base file does not have that shape, so that the build fails.
#include "TestElf.h"
#include "symbols/DebugInfo.h"
#include "symbols/ElfFile.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <map>
#include <string>
#include <vector>

namespace {

using Bytes = std::vector<unsigned char>;

// Beside the tags the tree knows (kTagStruct).
constexpr std::uint16_t kTagMember = 0x0d, kTagTypedef = 0x16, kTagSubrange = 0x21, kTagConst = 0x26,
                        kTagVariable = 0x34;

std::uint32_t u32(const Bytes& b, std::size_t at)
{
    std::uint32_t v = 0;
    std::memcpy(&v, b.data() + at, 4);
    return v;
}

[[noreturn]] std::uint32_t fail(const std::string& why)
{
    std::fprintf(stderr, "hostile_elf: %s\n", why.c_str());
    std::exit(1);
}

class Locator {
public:
    explicit Locator(const elf::DebugInfo& info) : m_info(info) {}

    std::uint32_t named(std::uint16_t tag, const char* name) const
    {
        for (std::uint32_t i = 0; i < m_info.dieCount(); ++i) {
            const elf::Die& d = m_info.die(i);
            if (d.tag == tag && d.name && std::strcmp(d.name, name) == 0)
                return i;
        }
        fail(std::string("no entry named ") + name);
    }
    std::uint32_t member(std::uint32_t record, const char* name) const
    {
        for (const elf::Die* c = m_info.child(m_info.die(record)); c; c = m_info.sibling(*c))
            if (c->tag == kTagMember && c->name && std::strcmp(c->name, name) == 0)
                return index(c);
        fail(std::string("no member named ") + name);
    }
    std::uint32_t subrange(std::uint32_t array) const
    {
        const elf::Die* c = m_info.child(m_info.die(array));
        return c && c->tag == kTagSubrange ? index(c) : fail("array without a subrange");
    }
    std::uint32_t typeOf(std::uint32_t die) const
    {
        const elf::Die* t = m_info.find(m_info.die(die).typeRef);
        return t ? index(t) : fail("entry without a type");
    }
    // Offset of an entry relative to its unit, as a DW_FORM_ref4 holds it.
    std::uint32_t unitRelative(std::uint32_t die) const
    {
        const elf::Die& d = m_info.die(die);
        return static_cast<std::uint32_t>(d.offset - m_info.unitOf(d).offset);
    }
    std::uint64_t unitOffset(std::uint32_t die) const { return m_info.unitOf(m_info.die(die)).offset; }
    // Section offset of the 4 bytes inside the entry that hold `value`.
    std::size_t field(const Bytes& image, std::size_t section, std::uint32_t die, std::uint32_t value) const
    {
        const std::size_t begin = section + m_info.die(die).offset;
        const std::size_t end = section + (die + 1 < m_info.dieCount() ? m_info.die(die + 1).offset : m_info.die(die).offset + 32);
        std::size_t found = 0, count = 0;
        for (std::size_t at = begin; at + 4 <= end; ++at)
            if (u32(image, at) == value) {
                found = at;
                ++count;
            }
        if (count != 1)
            fail("value " + std::to_string(value) + " occurs " + std::to_string(count) + " times in its entry");
        return found;
    }

private:
    std::uint32_t index(const elf::Die* d) const { return static_cast<std::uint32_t>(d - &m_info.die(0)); }
    const elf::DebugInfo& m_info;
};

void put32(Bytes& image, std::size_t at, std::uint32_t v) { std::memcpy(image.data() + at, &v, 4); }

}  // namespace

int main(int argc, char** argv)
{
    if (argc < 4)
        fail("usage: hostile_elf BASE.elf OUTDIR KIND...");
    const std::string base = argv[1], out = argv[2];
    const std::vector<std::string> kinds(argv + 3, argv + argc);
    const auto wanted = [&](const std::string& kind) { return std::find(kinds.begin(), kinds.end(), kind) != kinds.end(); };
    const Bytes original = testelf::readBytes(base);
    elf::FilePtr file(elf::open(base, false));
    if (!file || !file->loaded())
        fail("cannot load " + base);
    const elf::DebugInfo& info = file->debugInfo();
    const Locator at(info);
    std::size_t section = 0, sectionSize = 0;
    if (!testelf::findSection(original, ".debug_info", section, sectionSize))
        fail("no .debug_info");
    const auto ref4 = [&](std::uint32_t die) { return at.field(original, section, die, at.unitRelative(at.typeOf(die))); };

    // Every damage as (file offset, new 32-bit value) pairs.
    std::map<std::string, std::vector<std::pair<std::size_t, std::uint32_t>>> damage;

    const std::uint32_t knot = at.named(kTagStruct, "knot");
    for (const char* m : {"left", "right"})
        damage["self_struct"].emplace_back(ref4(at.member(knot, m)), at.unitRelative(knot));

    const std::uint32_t loop = at.named(kTagTypedef, "loop_t");
    damage["typedef_loop"].emplace_back(ref4(loop), at.unitRelative(loop));

    const std::uint32_t ring = at.named(kTagTypedef, "ring_t");
    const std::uint32_t constRing = at.typeOf(at.named(kTagVariable, "ring"));
    if (info.die(constRing).tag != kTagConst)
        fail("ring is not const");
    damage["qualifier_loop"].emplace_back(ref4(ring), at.unitRelative(constRing));

    for (const auto& [name, count] : {std::pair{"wide", 0xFFFFFFFEu}, std::pair{"bulk", 0x00FFFFFFu}}) {
        if (!wanted(std::string(name) + "_array"))
            continue;
        const std::uint32_t range = at.subrange(at.typeOf(at.named(kTagVariable, name)));
        if (!info.die(range).hasUpper)
            fail("subrange without an upper bound");
        damage[std::string(name) + "_array"].emplace_back(
            at.field(original, section, range, static_cast<std::uint32_t>(info.die(range).upperBound)), count);
    }

    damage["dangling_type"].emplace_back(ref4(at.named(kTagVariable, "dangling_far")), 0x7FFFFFF0u);
    damage["dangling_type"].emplace_back(ref4(at.named(kTagVariable, "dangling_near")), 1u);
    const std::uint32_t holder = at.named(kTagStruct, "holder");
    damage["dangling_member"].emplace_back(ref4(at.member(holder, "lost")), 0x7FFFFFF0u);

    // The version of the unit that holds broken_unit_var becomes 9.
    const std::size_t header = section + at.unitOffset(at.named(kTagVariable, "broken_unit_var"));
    damage["broken_header"].emplace_back(header + 4, (u32(original, header + 4) & 0xFFFF0000u) | 9u);

    std::erase_if(damage, [&](const auto& entry) { return !wanted(entry.first); });
    for (const auto& [name, list] : damage)
        for (const auto& change : list)
            damage["all"].push_back(change);

    for (const auto& [name, list] : damage) {
        if (!wanted(name))
            continue;
        Bytes bytes = original;
        for (const auto& [offset, value] : list)
            put32(bytes, offset, value);
        std::ofstream o(out + "/hostile_" + name + ".elf", std::ios::binary | std::ios::trunc);
        o.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
        if (!o)
            fail("cannot write " + name);
    }
    return 0;
}
