// Helpers of the file tests: a symbol selection and a sample store filled the
// way the read loops fill it, a recording bridge installed for the lifetime of
// an object, and small file utilities.
#pragma once

#include "base/Report.h"
#include "base/Text.h"
#include "probe/SampleStore.h"
#include "symbols/Node.h"
#include "symbols/SymbolDatabase.h"
#include "tests/app/TestBridge.h"

#include <QTemporaryDir>

#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

struct StoreFixture {
    SymbolDatabase symbols;
    SampleStore store{symbols};

    Node* select(const std::string& name, std::uint32_t size, std::int32_t typeId)
    {
        Node* n = symbols.createDetachedSymbol();
        n->Name = name;
        n->NameWithParents = name;
        n->Type = text::intern("t");
        n->Size = size;
        n->TypeID = typeId;
        auto sel = symbols.selected();
        sel.push_back(n);
        symbols.setSelected(sel);
        return n;
    }

    // Builds one time-stamped record from the values given per symbol.
    template <typename... V>
    static std::string record(std::uint32_t timeStamp, V... values)
    {
        std::string r(reinterpret_cast<const char*>(&timeStamp), 4);
        (r.append(reinterpret_cast<const char*>(&values), sizeof(V)), ...);
        return r;
    }

    void sample(const std::string& records)
    {
        store.layOut(true);
        if (store.isEmpty())
            store.prepareFreshStart();
        store.setOpen(true);
        store.storeRecords(reinterpret_cast<const std::uint8_t*>(records.data()), records.size());
        store.setOpen(false);
    }
};

struct ScopedBridge {
    TestBridge bridge;
    ScopedBridge() { report::setBridge(&bridge); }
    ~ScopedBridge() { report::setBridge(nullptr); }
    ScopedBridge(const ScopedBridge&) = delete;
    ScopedBridge& operator=(const ScopedBridge&) = delete;
};

inline std::string readAll(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

inline void writeAll(const std::string& path, const std::string& content)
{
    std::ofstream(path, std::ios::binary | std::ios::trunc) << content;
}

inline std::vector<std::string> lines(const std::string& content)
{
    std::vector<std::string> out;
    std::istringstream in(content);
    for (std::string l; std::getline(in, l);)
        out.push_back(l);
    return out;
}
