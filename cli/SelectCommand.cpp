// plotvik-cli select: ticks the symbols whose names match patterns, as a
// user would in the selection dialog, and saves the project.
#include "app/Controller.h"
#include "app/JobEngine.h"
#include "cli/Commands.h"
#include "cli/ConsoleBridge.h"
#include "cli/Help.h"
#include "probe/ProbeSampler.h"
#include "symbols/SymbolPattern.h"
#include "view/CurveColors.h"

#include <cstdio>
#include <memory>
#include <unordered_set>

int runSelectCommand(const std::vector<std::string>& args)
{
    if (args.size() < 2)
        return clihelp::usageError("select", args.empty() ? "missing PROJECT.plotvik" : "missing PATTERN");
    const std::string project = args[0];
    const std::vector<std::string> patterns(args.begin() + 1, args.end());

    JobEngine engine;
    ConsoleBridge bridge;
    Controller controller(engine, std::make_unique<ProbeSampler>());
    controller.setBridge(&bridge);
    StartArgs start;
    start.argv = {"plotvik-cli", "-openprj" + project};
    controller.postInit(&start, nullptr);
    controller.waitForQueue();
    controller.waitForQueue();  // the ELF parse the open posted
    const auto finish = [&](int status) {
        engine.stopAndWait([] {});
        controller.setBridge(nullptr);
        return status;
    };
    if (!controller.project().isOpen()) {
        std::fprintf(stderr, "plotvik-cli select: could not open project %s\n", project.c_str());
        return finish(1);
    }
    SymbolTree* tree = controller.symbols().tree();
    if (!tree) {
        std::fprintf(stderr, "plotvik-cli select: the project's ELF file could not be read\n");
        return finish(1);
    }

    // The worker is idle: nothing else touches the selection now.
    std::vector<Node*> selected = controller.symbols().selected();
    const std::unordered_set<const Node*> already(selected.begin(), selected.end());
    std::vector<bool> used(patterns.size(), false);
    std::vector<Node*> added;
    const auto hit = [&](const Node& leaf) {
        bool any = false;
        for (std::size_t p = 0; p < patterns.size(); ++p) {
            if (symbolpattern::matches(patterns[p], leaf.NameWithParents)) {
                used[p] = true;
                any = true;
            }
        }
        return any;
    };
    for (Node* leaf : symbolpattern::tickableLeaves(*tree, hit))
        if (!already.count(leaf))
            added.push_back(leaf);
    int status = 0;
    for (std::size_t p = 0; p < patterns.size(); ++p) {
        if (!used[p]) {
            std::fprintf(stderr, "plotvik-cli select: no symbol matches \"%s\"\n", patterns[p].c_str());
            status = 1;
        }
    }
    if (status != 0)
        return finish(status);

    selected.insert(selected.end(), added.begin(), added.end());
    controller.symbols().setSelected(selected);
    curvecolors::assign(controller.symbols().selected());
    if (!added.empty())
        controller.markModified();
    controller.postSaveProject();
    controller.waitForQueue();
    if (controller.project().isModified()) {
        std::fprintf(stderr, "plotvik-cli select: could not save %s\n", project.c_str());
        return finish(1);
    }
    for (const Node* n : added)
        std::printf("%s\n", n->NameWithParents.c_str());
    return finish(0);
}
