// A symbol selection and a sample store filled the way the read loops fill it.
#pragma once

#include "base/Text.h"
#include "probe/SampleStore.h"
#include "symbols/Node.h"
#include "symbols/SymbolDatabase.h"

#include <cstring>
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
