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

}  // namespace

int main(int argc, char** argv)
{
    if (argc < 4)
        fail("usage: hostile_elf BASE.elf OUTDIR KIND...");
    const std::string base = argv[1], out = argv[2];
    const std::vector<std::string> kinds(argv + 3, argv + argc);
    const auto wanted = [&](const std::string& kind) { return std::ranges::find(kinds, kind) != kinds.end(); };
    const Bytes original = testelf::readBytes(base);
    elf::FilePtr file(elf::open(base, false));
    if (!file || !file->loaded())
        fail("cannot load " + base);
    const elf::DebugInfo& info = file->debugInfo();
    std::size_t section = 0, sectionSize = 0;
    if (!testelf::findSection(original, ".debug_info", section, sectionSize))
        fail("no .debug_info");
    const auto index = [&](const elf::Die* d) { return static_cast<std::uint32_t>(d - &info.die(0)); };
    // An entry of `tag` named `name`; with `record`, a member of it.
    const auto named = [&](std::uint16_t tag, const char* name, std::uint32_t record = elf::kNoDie) -> std::uint32_t {
        const auto is = [&](const elf::Die& d) { return d.tag == tag && d.name && std::strcmp(d.name, name) == 0; };
        if (record != elf::kNoDie) {
            for (const elf::Die* c = info.child(info.die(record)); c; c = info.sibling(*c))
                if (is(*c))
                    return index(c);
        }
        for (std::uint32_t i = 0; record == elf::kNoDie && i < info.dieCount(); ++i)
            if (is(info.die(i)))
                return i;
        fail(std::string("no entry named ") + name);
    };
    const auto typeOf = [&](std::uint32_t die) {
        const elf::Die* t = info.find(info.die(die).typeRef);
        return t ? index(t) : fail("entry without a type");
    };
    // Offset of an entry relative to its unit, as a DW_FORM_ref4 holds it.
    const auto unitRelative = [&](std::uint32_t die) {
        return static_cast<std::uint32_t>(info.die(die).offset - info.unitOf(info.die(die)).offset);
    };
    // File offset of the 4 bytes inside the entry that hold `value`.
    const auto field = [&](std::uint32_t die, std::uint32_t value) {
        const std::size_t begin = section + info.die(die).offset;
        const std::size_t end =
            section + (die + 1 < info.dieCount() ? info.die(die + 1).offset : info.die(die).offset + 32);
        std::size_t found = 0, count = 0;
        for (std::size_t at = begin; at + 4 <= end; ++at)
            if (u32(original, at) == value) {
                found = at;
                ++count;
            }
        if (count != 1)
            fail("value " + std::to_string(value) + " occurs " + std::to_string(count) + " times in its entry");
        return found;
    };
    const auto ref4 = [&](std::uint32_t die) { return field(die, unitRelative(typeOf(die))); };

    // Every damage as (file offset, new 32-bit value) pairs.
    std::map<std::string, std::vector<std::pair<std::size_t, std::uint32_t>>> damage;

    const std::uint32_t knot = named(kTagStruct, "knot");
    for (const char* m : {"left", "right"})
        damage["self_struct"].emplace_back(ref4(named(kTagMember, m, knot)), unitRelative(knot));

    const std::uint32_t loop = named(kTagTypedef, "loop_t");
    damage["typedef_loop"].emplace_back(ref4(loop), unitRelative(loop));

    const std::uint32_t ring = named(kTagTypedef, "ring_t");
    const std::uint32_t constRing = typeOf(named(kTagVariable, "ring"));
    if (info.die(constRing).tag != kTagConst)
        fail("ring is not const");
    damage["qualifier_loop"].emplace_back(ref4(ring), unitRelative(constRing));

    for (const auto& [name, count] : {std::pair{"wide", 0xFFFFFFFEu}, std::pair{"bulk", 0x00FFFFFFu}}) {
        if (!wanted(std::string(name) + "_array"))
            continue;
        const elf::Die* range = info.child(info.die(typeOf(named(kTagVariable, name))));
        if (!range || range->tag != kTagSubrange || !range->hasUpper)
            fail("array without a bounded subrange");
        damage[std::string(name) + "_array"].emplace_back(
            field(index(range), static_cast<std::uint32_t>(range->upperBound)), count);
    }

    damage["dangling_type"].emplace_back(ref4(named(kTagVariable, "dangling_far")), 0x7FFFFFF0u);
    damage["dangling_type"].emplace_back(ref4(named(kTagVariable, "dangling_near")), 1u);
    const std::uint32_t lost = named(kTagMember, "lost", named(kTagStruct, "holder"));
    damage["dangling_member"].emplace_back(ref4(lost), 0x7FFFFFF0u);

    // The version of the unit that holds broken_unit_var becomes 9.
    const std::size_t header = section + info.unitOf(info.die(named(kTagVariable, "broken_unit_var"))).offset;
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
            std::memcpy(bytes.data() + offset, &value, 4);
        std::ofstream o(out + "/hostile_" + name + ".elf", std::ios::binary | std::ios::trunc);
        o.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
        if (!o)
            fail("cannot write " + name);
    }
    return 0;
}
