#include "cli/TriggerOption.h"

#include "files/Project.h"
#include "probe/SampleStore.h"
#include "symbols/Node.h"

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>

bool parseTriggerOption(const std::string& text, TriggerOption& out, std::string& error)
{
    out = TriggerOption{};
    out.given = true;
    if (text == "off") {
        out.off = true;
        return true;
    }
    const std::size_t levelAt = text.rfind(':');
    const std::size_t edgeAt = levelAt == std::string::npos || levelAt == 0 ? std::string::npos : text.rfind(':', levelAt - 1);
    if (edgeAt == std::string::npos || edgeAt == 0) {
        error = "--trigger takes NAME:rise|fall|both:LEVEL or off, not \"" + text + "\"";
        return false;
    }
    out.name = text.substr(0, edgeAt);
    const std::string edge = text.substr(edgeAt + 1, levelAt - edgeAt - 1);
    const std::string level = text.substr(levelAt + 1);
    if (edge == "rise") {
        out.rise = true;
    } else if (edge == "fall") {
        out.fall = true;
    } else if (edge == "both") {
        out.rise = out.fall = true;
    } else {
        error = "--trigger: the edge is rise, fall or both, not \"" + edge + "\"";
        return false;
    }
    char* end = nullptr;
    errno = 0;
    out.level = std::strtod(level.c_str(), &end);
    if (level.empty() || *end != '\0' || errno == ERANGE || !std::isfinite(out.level)) {
        error = "--trigger: the level is a number, not \"" + level + "\"";
        return false;
    }
    return true;
}

bool applyTriggerOption(const TriggerOption& option, Project& project, const std::vector<Node*>& selected,
                        std::string& error)
{
    ProjectSettings s = project.settings();
    s.TriggerFired = false;
    if (option.off) {
        s.TriggerOn = false;
        project.applyTrigger(s);
        return true;
    }
    Node* symbol = nullptr;
    for (Node* n : selected)
        if (n && n->NameWithParents == option.name)
            symbol = n;
    if (!symbol) {
        error = "--trigger: " + option.name + " is not a selected symbol of the project; the selected ones are:";
        for (const Node* n : selected)
            if (n)
                error += " " + n->NameWithParents;
        return false;
    }
    s.TriggerSymbol = symbol;
    s.TriggerOn = true;
    s.TriggerRise = option.rise;
    s.TriggerFall = option.fall;
    s.TriggerLevel = option.level;
    project.applyTrigger(s);
    return true;
}

std::string describeTrigger(const ProjectSettings& s)
{
    const char* edge = s.TriggerRise && s.TriggerFall ? "a rising or falling edge"
                       : s.TriggerRise                ? "a rising edge"
                       : s.TriggerFall                ? "a falling edge"
                                                      : "no edge";
    if (!s.TriggerSymbol)
        return std::string(edge) + " of no symbol (it never fires)";
    char level[64];
    std::snprintf(level, sizeof level, "%g", s.TriggerLevel);
    std::string text = std::string(edge) + " of " + s.TriggerSymbol->NameWithParents + " through " + level;
    if (!SampleStore::canTrigger(s.TriggerSymbol->TypeID))
        text += " (its type " + std::string(s.TriggerSymbol->Type) + " is never compared: it never fires)";
    return text;
}
