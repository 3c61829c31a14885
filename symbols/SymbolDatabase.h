// Owner of the current symbol tree, the list of selected symbols and the list
// of matched symbols. One instance, owned by the application controller and
// used only on the worker thread (the selection dialog runs while the worker
// waits on it).
#pragma once

#include "base/LargePages.h"
#include "symbols/Node.h"

#include <filesystem>
#include <map>
#include <memory>
#include <unordered_map>
#include <vector>

class Bridge;
namespace elf {
class DebugInfo;
}

// Storage of a tree's nodes: nodes never move, the arena frees them together.
// Nodes come in chunks, as one allocation per node dominated parse time.
class NodeArena {
public:
    Node* create();
    std::size_t size() const { return m_size; }
    // Element `index` of `level` (a node with elements on demand), made on
    // first use and kept as long as the arena.
    Node* element(const Node& level, std::uint32_t index);
    // The elements of `level` made so far, by index; nullptr when none.
    const std::map<std::uint32_t, Node*>* madeElements(const Node& level) const;
    // True when `node` lives in this arena (linear in the chunks: for rare checks only).
    bool owns(const Node* node) const;

    NodeArena() = default;
    NodeArena(const NodeArena&) = delete;
    NodeArena& operator=(const NodeArena&) = delete;
    ~NodeArena();

private:
    static constexpr std::size_t kChunk = largepages::kBlockBytes / sizeof(Node);
    std::vector<Node*> m_chunks;  // owned: large-page blocks, nodes constructed up to m_size
    std::size_t m_size = 0;
    std::unordered_map<const Node*, std::map<std::uint32_t, Node*>> m_elements;
};

struct SymbolTree {
    NodeArena arena;
    std::vector<Node*> files;  // the top level: source-file nodes in order
};

class SymbolDatabase {
public:
    SymbolDatabase();
    ~SymbolDatabase();

    // The current tree; nullptr when none was loaded.
    SymbolTree* tree() { return m_tree.get(); }
    const SymbolTree* tree() const { return m_tree.get(); }

    // Selected symbols in selection order (not owned: nodes of the tree, or
    // records read from a project file before the ELF file was parsed).
    std::vector<Node*>& selected() { return m_selected; }
    const std::vector<Node*>& selected() const { return m_selected; }
    // Replaces the selection; sets the selection-changed flag.
    void setSelected(std::vector<Node*> nodes);
    void clearSelected();
    bool selectionChanged() const { return m_selectionChanged; }
    void setSelectionChanged(bool on) { m_selectionChanged = on; }

    // A fresh symbol record outside any tree (used by the project loader).
    Node* createDetachedSymbol();
    // Makes `tree` the current tree (a tree built elsewhere, as by tests);
    // the old one lives on while selected symbols point into it.
    void setTree(std::unique_ptr<SymbolTree> tree);

    // ParseELFFile job body: builds a new tree from `path`; with `match` the
    // selection is carried over to the new tree. Returns 0 or negative.
    int parseElf(const std::string& path, bool match, Bridge* bridge);

    // Last-write time of the ELF file at the last successful parse.
    std::filesystem::file_time_type elfTime() const { return m_elfTime; }

    // Nodes filled by the last parse that matched a selected symbol.
    const std::vector<Node*>& matched() const { return m_matched; }

private:
    // The tree of the walk's global variables; throws std::bad_alloc when
    // memory runs out.
    std::unique_ptr<SymbolTree> buildTree(const elf::DebugInfo& info, Bridge* bridge);
    // Frees a replaced tree unless selected symbols still point into it.
    void retire(std::unique_ptr<SymbolTree> old);

    std::unique_ptr<SymbolTree> m_tree;
    std::vector<Node*> m_selected;
    std::vector<Node*> m_matched;
    std::vector<std::unique_ptr<SymbolTree>> m_detached;  // records loaded from projects
    bool m_selectionChanged = false;
    std::filesystem::file_time_type m_elfTime{};
};
