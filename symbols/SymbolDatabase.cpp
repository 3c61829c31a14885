#include "symbols/SymbolDatabase.h"

Node* NodeArena::create() { return &m_nodes.emplace_back(); }

SymbolDatabase::SymbolDatabase() = default;
SymbolDatabase::~SymbolDatabase() = default;

void SymbolDatabase::setSelected(std::vector<Node*> nodes)
{
    m_selected = std::move(nodes);
    m_selectionChanged = true;
}

void SymbolDatabase::clearSelected()
{
    m_selected.clear();
    m_selectionChanged = true;
}

Node* SymbolDatabase::createDetachedSymbol()
{
    if (m_detached.empty())
        m_detached.push_back(std::make_unique<SymbolTree>());
    return m_detached.back()->arena.create();
}

int SymbolDatabase::parseElf(const std::string&, bool, Bridge*)
{
    // The ELF reader and debug-info walk fill this in.
    return -1;
}
