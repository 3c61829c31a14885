#include "TestElf.h"
#include "base/Log.h"
#include "symbols/SymbolTree.h"
#include "tests/TempFolder.h"

#include <algorithm>
#include <cstring>
#include <fstream>
#include <iterator>

namespace testelf {

std::string corpus(const std::string& name) { return std::string(PLOTVIK_SYMBOLS_CORPUS) + "/" + name; }

std::vector<unsigned char> readBytes(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

std::string writeTemp(const std::string& name, const std::vector<unsigned char>& bytes)
{
    const std::string path = (testtemp::folder() / name).string();
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    return path;
}

namespace {
template <typename T = std::uint32_t>
T get(const std::vector<unsigned char>& b, std::size_t off)
{
    T v = 0;
    std::memcpy(&v, b.data() + off, sizeof v);
    return v;
}
}  // namespace

bool findSection(const std::vector<unsigned char>& image, const char* wanted, std::size_t& offset, std::size_t& size)
{
    if (image.size() < 52)
        return false;
    const std::uint32_t shoff = get(image, 32);
    const auto shentsize = get<std::uint16_t>(image, 46), shnum = get<std::uint16_t>(image, 48);
    const std::size_t strtab = get(image, shoff + get<std::uint16_t>(image, 50) * shentsize + 16);
    for (std::uint16_t i = 0; i < shnum; ++i) {
        const std::size_t sh = shoff + i * shentsize;
        if (std::strcmp(reinterpret_cast<const char*>(image.data() + strtab + get(image, sh)), wanted) == 0) {
            offset = get(image, sh + 16);
            size = get(image, sh + 20);
            return true;
        }
    }
    return false;
}

ErrorCapture::ErrorCapture()
    : m_previous(elf::setReportHandler([this](const elf::ErrorRecord& r) { records.push_back(r); }))
{
}

ErrorCapture::~ErrorCapture() { elf::setReportHandler(m_previous); }

bool ErrorCapture::has(int code) const
{
    return std::ranges::any_of(records, [&](const auto& r) { return r.code == code; });
}

LogCapture::LogCapture() : m_level(Log::instance().level())
{
    Log::instance().setLevel(9);
    Log::instance().setWriter([this](const std::string& line) { lines.push_back(line); });
}

LogCapture::~LogCapture()
{
    Log::instance().setWriter({});
    Log::instance().setLevel(m_level);
}

bool LogCapture::has(const std::string& part) const
{
    return std::ranges::any_of(lines, [&](const auto& l) { return l.find(part) != std::string::npos; });
}

const Node* Parsed::find(const std::string& path)
{
    if (!db.tree())
        return nullptr;
    const std::vector<Node*> found = symtree::findPath(db.tree()->arena, db.tree()->files, path);
    return found.empty() ? nullptr : found[0];
}

}  // namespace testelf
