#include "symbols/SymbolDatabase.h"

#include "base/Bridge.h"
#include "base/LargePages.h"
#include "base/Log.h"
#include "base/Report.h"
#include "symbols/ElfFile.h"
#include "symbols/SymbolTree.h"

#include <algorithm>
#include <functional>
#include <memory>
#include <new>
#include <system_error>

Node* NodeArena::create()
{
    const std::size_t index = m_size % kChunk;
    if (index == 0) {
        void* chunk = largepages::allocate();
        if (!chunk)
            throw std::bad_alloc();  // as any container would: out of memory is not a case we handle
        m_chunks.push_back(static_cast<Node*>(chunk));
    }
    ++m_size;
    return new (m_chunks.back() + index) Node;
}

Node* NodeArena::element(const Node& level, std::uint32_t index)
{
    std::map<std::uint32_t, Node*>& made = m_elements[&level];
    if (const auto it = made.find(index); it != made.end())
        return it->second;
    Node* n = symtree::makeElement(level, index, [this] { return create(); });
    made.emplace(index, n);
    return n;
}

const std::map<std::uint32_t, Node*>* NodeArena::madeElements(const Node& level) const
{
    const auto it = m_elements.find(&level);
    return it == m_elements.end() ? nullptr : &it->second;
}

NodeArena::~NodeArena()
{
    std::size_t left = m_size;
    for (Node* chunk : m_chunks) {
        const std::size_t n = std::min(left, kChunk);
        std::destroy_n(chunk, n);
        left -= n;
        largepages::release(chunk);
    }
}

bool NodeArena::owns(const Node* node) const
{
    const std::less<const Node*> before;
    return std::any_of(m_chunks.begin(), m_chunks.end(), [&](const Node* chunk) {
        return !before(node, chunk) && before(node, chunk + kChunk);
    });
}

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

void SymbolDatabase::setTree(std::unique_ptr<SymbolTree> tree)
{
    std::unique_ptr<SymbolTree> old = std::move(m_tree);
    m_tree = std::move(tree);
    retire(std::move(old));
}

void SymbolDatabase::retire(std::unique_ptr<SymbolTree> old)
{
    if (!old)
        return;
    // Selected symbols may still point into the old tree: keep it alive then.
    const bool referenced = std::any_of(m_selected.begin(), m_selected.end(), [&](const Node* n) {
        return std::find(old->files.begin(), old->files.end(), n) != old->files.end() || old->arena.owns(n);
    });
    if (referenced)
        m_detached.push_back(std::move(old));
}

std::unique_ptr<SymbolTree> SymbolDatabase::buildTree(const elf::DebugInfo& info, Bridge* bridge)
{
    auto tree = std::make_unique<SymbolTree>();
    const auto& globals = info.globals();
    const int limit = static_cast<int>(globals.size());
    if (bridge)
        bridge->progress(0, "Parsing ELF file ...", kProgressStart, limit);

    symtree::Builder builder(info, tree->arena, [this](Node& node) {
        for (const Node* s : m_selected)
            if (symtree::matches(node, *s)) {
                m_matched.push_back(&node);
                break;
            }
    });
    // Selected array elements are made as the tree is built, to be matched.
    std::vector<std::string> paths;
    for (const Node* s : m_selected)
        paths.push_back(s->NameWithParents);
    builder.want(paths);
    Node* fileNode = nullptr;
    Node* previous = nullptr;
    std::string_view previousFile;
    int lastReported = 0;
    for (int i = 0; i < limit; ++i) {
        const elf::Die& symbol = info.die(globals[static_cast<std::size_t>(i)]);
        if (symbol.hasAddress && builder.accepts(symbol)) {
            const std::string_view declared = info.declFile(symbol);
            Node* node = tree->arena.create();
            if (!fileNode || declared != previousFile) {
                fileNode = tree->arena.create();
                fileNode->File = declared;
                tree->files.push_back(fileNode);
                fileNode->addChild(node);
            } else {
                previous->Next = node;
                fileNode->LastChild = node;
            }
            previous = node;
            previousFile = declared;
            builder.fill(&symbol, *node, nullptr, 0, false);
        }
        // Each round trip to the interface costs; a step per half percent is plenty.
        if (bridge && (i + 1 == limit || (i + 1 - lastReported) * 200 >= limit)) {
            bridge->progress(i + 1, "Parsing ELF file ...", kProgressUpdate, limit);
            lastReported = i + 1;
        }
    }
    if (bridge)
        bridge->progress(limit, "Parsing ELF file ...", kProgressEnd, limit);
    return tree;
}

int SymbolDatabase::parseElf(const std::string& path, bool match, Bridge* bridge)
{
    m_matched.clear();
    std::unique_ptr<SymbolTree> old = std::move(m_tree);

    elf::FilePtr file;
    std::unique_ptr<SymbolTree> tree;
    (void)elf::takeLastError();  // only this open's reason counts
    try {
        file.reset(elf::open(path, false));
        if (file)
            tree = buildTree(file->debugInfo(), bridge);
    } catch (const std::bad_alloc&) {
        // A file too big for this machine's memory leaves no tree, not no program.
        m_matched.clear();
        if (bridge)
            bridge->progress(0, "Parsing ELF file ...", kProgressEnd, 0);
        report::error("Insufficient memory!");
        retire(std::move(old));
        return -1;
    }
    if (!file) {
        report::error(report::withReason("Could not open ELF file!", elf::takeLastError()));
        retire(std::move(old));
        return -1;
    }

    m_tree = std::move(tree);
    std::error_code ec;
    const auto time = std::filesystem::last_write_time(path, ec);
    if (!ec)
        m_elfTime = time;

    if (match) {
        if (bridge)
            bridge->symbolsAboutToChange();
        for (const Node* oldNode : m_selected) {
            for (Node* n : m_matched) {
                if (symtree::matches(*n, *oldNode)) {
                    // The display settings travel with the symbol, so a project's
                    // scales and styles survive opening it and a re-parse.
                    n->symbol().DrawStyle = oldNode->symbol().DrawStyle;
                    n->symbol().YOffset = oldNode->symbol().YOffset;
                    n->symbol().YResolution = oldNode->symbol().YResolution;
                    n->symbol().IsAutoConfig = oldNode->symbol().IsAutoConfig;
                    n->symbol().ManualYResolution = oldNode->symbol().ManualYResolution;
                    n->symbol().ShowInGraph = oldNode->symbol().ShowInGraph;
                    n->symbol().GraphColor = oldNode->symbol().GraphColor;
                    n->symbol().HasGraphColor = oldNode->symbol().HasGraphColor;
                    n->symbol().TableRow = oldNode->symbol().TableRow;
                    break;
                }
            }
        }
        m_selected = std::move(m_matched);
        m_matched.clear();
        m_selectionChanged = true;
        old.reset();
        if (bridge)
            bridge->symbolsChanged();
    } else {
        retire(std::move(old));
    }
    Log::instance().line("%zu symbol nodes from %s", m_tree->arena.size(), path.c_str());
    return 0;
}
