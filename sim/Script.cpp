#include "sim/Script.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace sim {
namespace {

std::string_view trim(std::string_view s)
{
    while (!s.empty() && std::isspace(static_cast<unsigned char>(s.front())))
        s.remove_prefix(1);
    while (!s.empty() && std::isspace(static_cast<unsigned char>(s.back())))
        s.remove_suffix(1);
    return s;
}

std::string lower(std::string_view s)
{
    std::string r(s);
    std::transform(r.begin(), r.end(), r.begin(), [](unsigned char c) { return char(std::tolower(c)); });
    return r;
}

bool parseU32(std::string_view v, uint32_t& out)
{
    int base = 10;
    if (v.size() > 2 && v[0] == '0' && (v[1] == 'x' || v[1] == 'X')) {
        v.remove_prefix(2);
        base = 16;
    }
    if (v.empty())
        return false;
    auto [p, ec] = std::from_chars(v.data(), v.data() + v.size(), out, base);
    return ec == std::errc() && p == v.data() + v.size();
}

std::string unquote(std::string_view v)
{
    if (v.size() >= 2 && v.front() == '"' && v.back() == '"')
        v = v.substr(1, v.size() - 2);
    return std::string(v);
}

} // namespace

std::string parseScript(std::string_view text, const std::string& folder, Script& out)
{
    std::istringstream in{std::string(text)};
    std::string line;
    int number = 0;
    while (std::getline(in, line)) {
        ++number;
        std::string_view l = trim(line);
        if (l.empty() || l.front() == '#' || l.starts_with("//"))
            continue;
        const auto eq = l.find('=');
        const std::string where = "line " + std::to_string(number);
        if (eq == std::string_view::npos)
            return where + ": expected \"Key = Value\"";
        const std::string key = lower(trim(l.substr(0, eq)));
        const std::string_view value = trim(l.substr(eq + 1));
        if (value.empty())
            return where + ": no value for " + std::string(trim(l.substr(0, eq)));
        uint32_t n = 0;
        if (key == "firmware") {
            std::filesystem::path p(unquote(value));
            if (p.is_relative() && !folder.empty())
                p = std::filesystem::path(folder) / p;
            out.firmware = p.lexically_normal().string();
        } else if (key == "fast") {
            if (!parseU32(value, n) || n > 1)
                return where + ": Fast takes 0 or 1";
            out.fast = n == 1;
        } else if (key == "clockhz") {
            if (!parseU32(value, n) || n < 1000000 || n > 1000000000)
                return where + ": ClockHz takes 1000000 .. 1000000000";
            out.clockHz = n;
        } else if (key == "serialnumber") {
            if (!parseU32(value, n) || n == 0)
                return where + ": SerialNumber takes a non-zero number";
            out.serialNumber = n;
        } else if (key == "device") {
            out.device = unquote(value);
        } else if (key == "devicedialog") {
            out.deviceDialog = unquote(value);
        } else if (key == "failreadafter") {
            if (!parseU32(value, n))
                return where + ": FailReadAfter takes a number";
            out.failReadAfter = n;
        } else if (key == "sliceinstructions") {
            if (!parseU32(value, n) || n < 64 || n > 1000000)
                return where + ": SliceInstructions takes 64 .. 1000000";
            out.sliceInstructions = n;
        } else if (key == "dropwhenfull") {
            if (!parseU32(value, n) || n > 1)
                return where + ": DropWhenFull takes 0 or 1";
            out.dropWhenFull = n == 1;
        } else if (key == "attach") {
            if (!parseU32(value, n) || n > 1)
                return where + ": Attach takes 0 or 1";
            out.attach = n == 1;
        } else if (key == "gdbserverport") {
            if (!parseU32(value, n) || n == 0 || n > 65535)
                return where + ": GdbServerPort takes 1 .. 65535";
            out.gdbServerPort = static_cast<uint16_t>(n);
        } else {
            return where + ": unknown key \"" + std::string(trim(l.substr(0, eq))) + "\"";
        }
    }
    return {};
}

std::string loadScript(const std::string& path, Script& out)
{
    std::ifstream in(path);
    if (!in)
        return "cannot open script file \"" + path + "\"";
    std::stringstream ss;
    ss << in.rdbuf();
    out = {};
    out.path = path;
    const std::string folder = std::filesystem::path(path).parent_path().string();
    return parseScript(ss.str(), folder, out);
}

void mergeScript(Script& base, const Script& top)
{
    if (!top.path.empty())
        base.path = top.path;
    if (top.firmware)
        base.firmware = top.firmware;
    if (top.fast)
        base.fast = top.fast;
    if (top.clockHz)
        base.clockHz = top.clockHz;
    if (top.dropWhenFull)
        base.dropWhenFull = top.dropWhenFull;
    if (top.serialNumber)
        base.serialNumber = top.serialNumber;
    if (top.device)
        base.device = top.device;
    if (top.deviceDialog)
        base.deviceDialog = top.deviceDialog;
    if (top.failReadAfter)
        base.failReadAfter = top.failReadAfter;
    if (top.sliceInstructions)
        base.sliceInstructions = top.sliceInstructions;
    if (top.attach)
        base.attach = top.attach;
    if (top.gdbServerPort)
        base.gdbServerPort = top.gdbServerPort;
}

} // namespace sim
